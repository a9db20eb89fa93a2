#include "system/x11/X11KeySynthesiser.h"

#include "state/HotkeyConfig.h"
#include "state/KeyCodes.h"
#include "state/Log.h"
#include "system/KeyWatcher.h"

#include <QElapsedTimer>
#include <QTimer>
#include <QCoro/QCoroTimer>
#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include <xcb/xtest.h>
#define explicit xkb_explicit
#include <xcb/xkb.h>
#undef explicit
#include <xkbcommon/xkbcommon-x11.h>
#include <xkbcommon/xkbcommon.h>

namespace {

using namespace std::chrono_literals;

const char *const tag = "KeyboardSimulator";

// A spare key lent to a character is given this long before it is typed on, and keeps its
// meaning for this long after the last typing.
constexpr auto remapSettle = 20ms;
constexpr auto remapLinger = 2000ms;

template <typename T>
using CPtr = std::unique_ptr<T, decltype(&free)>;

template <typename T>
CPtr<T> adopt(T *p)
{
    return CPtr<T>(p, &free);
}

// The keysym each canonical key code stands for. Letters and digits are found by what they
// type, the rest by their function.
std::optional<xkb_keysym_t> keysymOfKeyCode(quint32 keyCode)
{
    static const std::map<quint32, xkb_keysym_t> keysyms = {
        {0, XKB_KEY_a}, {11, XKB_KEY_b}, {8, XKB_KEY_c}, {2, XKB_KEY_d}, {14, XKB_KEY_e}, {3, XKB_KEY_f},
        {5, XKB_KEY_g}, {4, XKB_KEY_h}, {34, XKB_KEY_i}, {38, XKB_KEY_j}, {40, XKB_KEY_k}, {37, XKB_KEY_l},
        {46, XKB_KEY_m}, {45, XKB_KEY_n}, {31, XKB_KEY_o}, {35, XKB_KEY_p}, {12, XKB_KEY_q}, {15, XKB_KEY_r},
        {1, XKB_KEY_s}, {17, XKB_KEY_t}, {32, XKB_KEY_u}, {9, XKB_KEY_v}, {13, XKB_KEY_w}, {7, XKB_KEY_x},
        {16, XKB_KEY_y}, {6, XKB_KEY_z}, {29, XKB_KEY_0}, {18, XKB_KEY_1}, {19, XKB_KEY_2}, {20, XKB_KEY_3},
        {21, XKB_KEY_4}, {23, XKB_KEY_5}, {22, XKB_KEY_6}, {26, XKB_KEY_7}, {28, XKB_KEY_8}, {25, XKB_KEY_9},
        {KeyCodes::Return, XKB_KEY_Return}, {KeyCodes::Tab, XKB_KEY_Tab}, {KeyCodes::Space, XKB_KEY_space},
        {KeyCodes::Delete, XKB_KEY_BackSpace}, {KeyCodes::Escape, XKB_KEY_Escape},
        {KeyCodes::KeypadEnter, XKB_KEY_KP_Enter}, {114, XKB_KEY_Insert}, {115, XKB_KEY_Home},
        {116, XKB_KEY_Page_Up}, {117, XKB_KEY_Delete}, {119, XKB_KEY_End}, {121, XKB_KEY_Page_Down},
        {KeyCodes::LeftArrow, XKB_KEY_Left}, {KeyCodes::RightArrow, XKB_KEY_Right},
        {KeyCodes::DownArrow, XKB_KEY_Down}, {KeyCodes::UpArrow, XKB_KEY_Up},
    };
    const auto found = keysyms.find(keyCode);
    if (found == keysyms.end())
        return std::nullopt;
    return found->second;
}

} // namespace

// The keyboard as it is at one moment: the server's keymap, its active layout (group) and locked
// modifiers (Caps Lock), and what every key types under a few combinations of level modifiers.
struct X11KeySynthesiser::Layout {
    struct Position {
        xcb_keycode_t keycode = 0;
        std::vector<xcb_keycode_t> modifiers;   // level keys to hold (Shift, AltGr...)
    };

    std::unique_ptr<xkb_keymap, decltype(&xkb_keymap_unref)> keymap{nullptr, &xkb_keymap_unref};
    xkb_layout_index_t layout = 0;
    xkb_mod_mask_t locked = 0;
    xkb_keycode_t minKeycode = 8;
    xkb_keycode_t maxKeycode = 255;

    // A state in `layoutIndex` with Caps Lock & co. as they are and these keys held.
    std::unique_ptr<xkb_state, decltype(&xkb_state_unref)> stateWith(xkb_layout_index_t layoutIndex,
                                                                       const std::vector<xcb_keycode_t> &held) const
    {
        std::unique_ptr<xkb_state, decltype(&xkb_state_unref)> state(xkb_state_new(keymap.get()), &xkb_state_unref);
        xkb_state_update_mask(state.get(), 0, 0, locked, 0, 0, layoutIndex);
        for (xcb_keycode_t key : held)
            xkb_state_update_key(state.get(), key, XKB_KEY_DOWN);
        return state;
    }

    // The key producing keysym with nothing held, in the active layout, else in any layout.
    std::optional<xcb_keycode_t> plainKeyFor(xkb_keysym_t keysym) const
    {
        const xkb_layout_index_t layouts = xkb_keymap_num_layouts(keymap.get());
        for (xkb_layout_index_t i = 0; i < layouts; ++i) {
            const xkb_layout_index_t candidate = (layout + i) % layouts;
            for (xkb_keycode_t key = minKeycode; key <= maxKeycode; ++key) {
                const xkb_layout_index_t keyLayouts = xkb_keymap_num_layouts_for_key(keymap.get(), key);
                if (keyLayouts == 0)
                    continue;
                const xkb_keysym_t *syms = nullptr;
                const int count = xkb_keymap_key_get_syms_by_level(keymap.get(), key,
                                                                   std::min(candidate, keyLayouts - 1), 0, &syms);
                if (std::find(syms, syms + count, keysym) != syms + count)
                    return static_cast<xcb_keycode_t>(key);
            }
        }
        return std::nullopt;
    }

    // Where a character (or, with character 0, a keysym) is typed in the active layout, with
    // which level keys held; none when the layout lacks it.
    std::optional<Position> positionOf(char32_t character, xkb_keysym_t keysym)
    {
        if (!tablesBuilt)
            buildTables();
        if (character) {
            const auto found = byCharacter.find(character);
            return found == byCharacter.end() ? std::nullopt : std::optional<Position>(found->second);
        }
        const auto found = byKeysym.find(keysym);
        return found == byKeysym.end() ? std::nullopt : std::optional<Position>(found->second);
    }

private:
    // What every key types with no level key held, then Shift, AltGr (level 3), level 5 and their
    // combinations; the first way found for a character is kept.
    void buildTables()
    {
        tablesBuilt = true;
        std::vector<std::vector<xcb_keycode_t>> combinations{{}};
        const auto shift = plainKeyFor(XKB_KEY_Shift_L);
        const auto level3 = plainKeyFor(XKB_KEY_ISO_Level3_Shift);
        const auto level5 = plainKeyFor(XKB_KEY_ISO_Level5_Shift);
        if (shift)
            combinations.push_back({*shift});
        if (level3) {
            combinations.push_back({*level3});
            if (shift)
                combinations.push_back({*shift, *level3});
        }
        if (level5) {
            combinations.push_back({*level5});
            if (shift)
                combinations.push_back({*shift, *level5});
        }
        for (const auto &held : combinations) {
            const auto state = stateWith(layout, held);
            for (xkb_keycode_t key = minKeycode; key <= maxKeycode; ++key) {
                if (std::find(held.begin(), held.end(), key) != held.end())
                    continue;
                const Position position{static_cast<xcb_keycode_t>(key), held};
                if (const uint32_t c = xkb_state_key_get_utf32(state.get(), key))
                    byCharacter.try_emplace(c, position);
                if (const xkb_keysym_t sym = xkb_state_key_get_one_sym(state.get(), key); sym != XKB_KEY_NoSymbol)
                    byKeysym.try_emplace(sym, position);
            }
        }
    }

    bool tablesBuilt = false;
    std::map<char32_t, Position> byCharacter;
    std::map<xkb_keysym_t, Position> byKeysym;
};

// The core protocol's view of the keyboard mapping, where spare key codes are lent out.
struct X11KeySynthesiser::CoreMapping {
    xcb_keycode_t first = 0;
    int perKeycode = 0;
    std::vector<xcb_keysym_t> keysyms;

    xcb_keysym_t symbolAt(xcb_keycode_t key) const
    {
        const size_t index = size_t(key - first) * size_t(perKeycode);
        return key >= first && index < keysyms.size() ? keysyms[index] : XCB_NO_SYMBOL;
    }

    std::vector<xcb_keycode_t> spareKeys() const
    {
        std::vector<xcb_keycode_t> spare;
        if (perKeycode <= 0)
            return spare;
        const size_t count = keysyms.size() / size_t(perKeycode);
        for (size_t k = count; k-- > 0;) {
            const auto row = keysyms.begin() + std::ptrdiff_t(k * size_t(perKeycode));
            if (std::all_of(row, row + perKeycode, [](xcb_keysym_t s) { return s == XCB_NO_SYMBOL; }))
                spare.push_back(static_cast<xcb_keycode_t>(first + k));
        }
        return spare;
    }
};

X11KeySynthesiser::X11KeySynthesiser()
    : m_giveBackTimer(std::make_unique<QTimer>())
{
    m_giveBackTimer->setSingleShot(true);
    QObject::connect(m_giveBackTimer.get(), &QTimer::timeout, [this] { giveBackSpareKeys(); });
    m_connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(m_connection)) {
        xcb_disconnect(m_connection);
        m_connection = nullptr;
        logLine(tag, QStringLiteral("cannot open the display: no keys can be sent"));
        return;
    }
    const xcb_query_extension_reply_t *xtest = xcb_get_extension_data(m_connection, &xcb_test_id);
    if (!xtest || !xtest->present) {
        logLine(tag, QStringLiteral("the X server lacks XTest: no keys can be sent"));
        xcb_disconnect(m_connection);
        m_connection = nullptr;
        return;
    }
    if (!xkb_x11_setup_xkb_extension(m_connection, XKB_X11_MIN_MAJOR_XKB_VERSION, XKB_X11_MIN_MINOR_XKB_VERSION,
                                     XKB_X11_SETUP_XKB_EXTENSION_NO_FLAGS, nullptr, nullptr, nullptr, nullptr)
        || (m_deviceId = xkb_x11_get_core_keyboard_device_id(m_connection)) < 0) {
        logLine(tag, QStringLiteral("the X server lacks XKB: no keys can be sent"));
        xcb_disconnect(m_connection);
        m_connection = nullptr;
        return;
    }
    m_context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
}

X11KeySynthesiser::~X11KeySynthesiser()
{
    giveBackSpareKeys();
    if (m_context)
        xkb_context_unref(m_context);
    if (m_connection)
        xcb_disconnect(m_connection);
}

std::unique_ptr<KeySynthesiser> createSystemKeySynthesiser()
{
    return std::make_unique<X11KeySynthesiser>();
}

std::unique_ptr<X11KeySynthesiser::Layout> X11KeySynthesiser::loadLayout()
{
    auto layout = std::make_unique<Layout>();
    layout->keymap.reset(xkb_x11_keymap_new_from_device(m_context, m_connection, m_deviceId,
                                                        XKB_KEYMAP_COMPILE_NO_FLAGS));
    if (!layout->keymap)
        return nullptr;
    std::unique_ptr<xkb_state, decltype(&xkb_state_unref)> live(
        xkb_x11_state_new_from_device(layout->keymap.get(), m_connection, m_deviceId), &xkb_state_unref);
    if (!live)
        return nullptr;
    layout->layout = xkb_state_serialize_layout(live.get(), XKB_STATE_LAYOUT_EFFECTIVE);
    layout->locked = xkb_state_serialize_mods(live.get(), XKB_STATE_MODS_LOCKED);
    layout->minKeycode = xkb_keymap_min_keycode(layout->keymap.get());
    layout->maxKeycode = std::min<xkb_keycode_t>(xkb_keymap_max_keycode(layout->keymap.get()), 255);
    return layout;
}

X11KeySynthesiser::CoreMapping X11KeySynthesiser::coreMapping()
{
    CoreMapping mapping;
    const xcb_setup_t *setup = xcb_get_setup(m_connection);
    mapping.first = setup->min_keycode;
    const int count = setup->max_keycode - setup->min_keycode + 1;
    if (auto reply = adopt(xcb_get_keyboard_mapping_reply(
            m_connection, xcb_get_keyboard_mapping(m_connection, mapping.first, static_cast<uint8_t>(count)), nullptr))) {
        mapping.perKeycode = reply->keysyms_per_keycode;
        const xcb_keysym_t *syms = xcb_get_keyboard_mapping_keysyms(reply.get());
        mapping.keysyms.assign(syms, syms + xcb_get_keyboard_mapping_keysyms_length(reply.get()));
    }
    return mapping;
}

void X11KeySynthesiser::giveBackSpareKeys()
{
    m_giveBackTimer->stop();
    if (!m_connection || m_lent.empty())
        return;
    // Only keys still holding what we lent them: a layout switch may have reset them already.
    const CoreMapping mapping = coreMapping();
    const std::vector<xcb_keysym_t> empty(static_cast<size_t>(std::max(mapping.perKeycode, 1)), XCB_NO_SYMBOL);
    for (const auto &[sym, key] : m_lent) {
        if (mapping.symbolAt(key) == sym)
            xcb_change_keyboard_mapping(m_connection, 1, key, static_cast<uint8_t>(empty.size()), empty.data());
    }
    m_lent.clear();
    sync();
}

void X11KeySynthesiser::send(bool press, xcb_keycode_t keycode)
{
    xcb_test_fake_input(m_connection, press ? XCB_KEY_PRESS : XCB_KEY_RELEASE, keycode, XCB_CURRENT_TIME,
                        XCB_WINDOW_NONE, 0, 0, 0);
    ++m_sentEvents;
    if (press)
        SynthesisedKeys::notePress(keycode);   // a key watcher leaves it out of the user's typing
}

void X11KeySynthesiser::tap(const std::vector<xcb_keycode_t> &modifiers, xcb_keycode_t keycode)
{
    for (xcb_keycode_t modifier : modifiers)
        send(true, modifier);
    send(true, keycode);
    send(false, keycode);
    for (auto it = modifiers.rbegin(); it != modifiers.rend(); ++it)
        send(false, *it);
}

void X11KeySynthesiser::sync()
{
    // The server has handled everything sent once this round trip returns.
    free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    // Keyboard mapping notices reach every client; this one has no use for them.
    while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection))
        free(event);
}

QCoro::Task<> X11KeySynthesiser::waitForReleasedKeys()
{
    // Lock keys (Caps Lock, Num Lock...) are toggles: holding them is never what blocks us.
    std::set<xcb_keycode_t> ignored;
    if (auto modifiers = adopt(xcb_get_modifier_mapping_reply(m_connection, xcb_get_modifier_mapping(m_connection),
                                                              nullptr))) {
        const xcb_keycode_t *keycodes = xcb_get_modifier_mapping_keycodes(modifiers.get());
        const int perModifier = modifiers->keycodes_per_modifier;
        for (int k = 0; k < perModifier; ++k)
            ignored.insert(keycodes[1 * perModifier + k]);   // the Lock modifier's keys
    }
    const CoreMapping mapping = coreMapping();
    for (size_t i = 0; mapping.perKeycode > 0 && i < mapping.keysyms.size(); ++i) {
        const xcb_keysym_t sym = mapping.keysyms[i];
        if (sym == XKB_KEY_Num_Lock || sym == XKB_KEY_Caps_Lock || sym == XKB_KEY_Scroll_Lock || sym == XKB_KEY_Shift_Lock)
            ignored.insert(static_cast<xcb_keycode_t>(mapping.first + i / size_t(mapping.perKeycode)));
    }
    ignored.erase(0);

    QElapsedTimer waited;
    waited.start();
    for (;;) {
        std::vector<xcb_keycode_t> held;
        if (auto keys = adopt(xcb_query_keymap_reply(m_connection, xcb_query_keymap(m_connection), nullptr))) {
            for (int code = 8; code < 256; ++code) {
                if ((keys->keys[code / 8] >> (code % 8)) & 1 && !ignored.count(static_cast<xcb_keycode_t>(code)))
                    held.push_back(static_cast<xcb_keycode_t>(code));
            }
        }
        if (held.empty())
            co_return;
        if (std::chrono::milliseconds(waited.elapsed()) >= releaseWaitBound) {
            logLine(tag, QStringLiteral("%1 key(s) still held after %2 ms: released for the keystroke")
                             .arg(held.size())
                             .arg(releaseWaitBound.count()));
            for (xcb_keycode_t key : held)
                send(false, key);
            sync();
            co_return;
        }
        co_await QCoro::sleepFor(releasePollInterval);
    }
}

QCoro::Task<> X11KeySynthesiser::waitForKeysUp()
{
    if (!m_connection)
        co_return;
    co_await waitForReleasedKeys();
}

QCoro::Task<> X11KeySynthesiser::pressChord(KeyChord chord)
{
    if (!m_connection)
        co_return;
    co_await waitForReleasedKeys();
    const auto keysym = keysymOfKeyCode(chord.keyCode);
    auto layout = loadLayout();
    if (!keysym || !layout) {
        logLine(tag, QStringLiteral("no key for key code %1").arg(chord.keyCode));
        co_return;
    }
    const auto key = layout->plainKeyFor(*keysym);
    if (!key) {
        logLine(tag, QStringLiteral("the keyboard layout has no key for key code %1").arg(chord.keyCode));
        co_return;
    }
    std::vector<xcb_keycode_t> modifiers;
    const std::pair<quint32, xkb_keysym_t> modifierKeys[] = {{Modifier::Command, XKB_KEY_Control_L},
                                                             {Modifier::Option, XKB_KEY_Alt_L},
                                                             {Modifier::Control, XKB_KEY_Super_L},
                                                             {Modifier::Shift, XKB_KEY_Shift_L}};
    for (const auto &[bit, sym] : modifierKeys) {
        if (!(chord.modifiers & bit))
            continue;
        if (const auto modifier = layout->plainKeyFor(sym))
            modifiers.push_back(*modifier);
        else
            logLine(tag, QStringLiteral("the keyboard has no key for a modifier of the chord"));
    }
    tap(modifiers, *key);
    sync();
}

QCoro::Task<> X11KeySynthesiser::pressKey(quint32 keyCode, int count)
{
    if (!m_connection || count < 1)
        co_return;
    co_await waitForReleasedKeys();
    const auto keysym = keysymOfKeyCode(keyCode);
    auto layout = loadLayout();
    const auto key = keysym && layout ? layout->plainKeyFor(*keysym) : std::nullopt;
    if (!key) {
        logLine(tag, QStringLiteral("the keyboard layout has no key for key code %1").arg(keyCode));
        co_return;
    }
    for (int i = 0; i < count; ++i)
        tap({}, *key);
    sync();
}

QCoro::Task<bool> X11KeySynthesiser::typeText(QString text)
{
    if (!m_connection)
        co_return false;
    co_await waitForReleasedKeys();
    auto layout = loadLayout();
    if (!layout)
        co_return false;

    // What to press for each character; characters the layout lacks get a keysym to map.
    struct Stroke {
        std::optional<Layout::Position> position;
        xkb_keysym_t missing = XKB_KEY_NoSymbol;
    };
    std::vector<Stroke> strokes;
    const QList<uint> characters = text.toUcs4();
    for (qsizetype i = 0; i < characters.size(); ++i) {
        const char32_t c = characters[i];
        if (c == '\r' && i + 1 < characters.size() && characters[i + 1] == '\n')
            continue;
        Stroke stroke;
        if (c == '\n' || c == '\r')
            stroke.position = layout->positionOf(0, XKB_KEY_Return);
        else if (c == '\t')
            stroke.position = layout->positionOf(0, XKB_KEY_Tab);
        else if (c < 0x20 || c == 0x7f)
            continue;
        else
            stroke.position = layout->positionOf(c, XKB_KEY_NoSymbol);
        if (!stroke.position) {
            stroke.missing = c == '\n' || c == '\r' ? XKB_KEY_Return : c == '\t' ? XKB_KEY_Tab : xkb_utf32_to_keysym(c);
            if (stroke.missing == XKB_KEY_NoSymbol)
                continue;
        }
        strokes.push_back(std::move(stroke));
    }

    if (std::none_of(strokes.begin(), strokes.end(), [](const Stroke &s) { return !s.position; })) {
        for (const Stroke &stroke : strokes)
            tap(stroke.position->modifiers, stroke.position->keycode);
        sync();
        co_return true;
    }

    // Characters the layout lacks are typed on spare key codes (no symbol at all), each lent to
    // one character. Applications read the new mapping when they get to the keys typed on them,
    // which may be a while on a busy machine: a spare key keeps its meaning until remapLinger
    // after the last typing, and is reused as it is for the same character meanwhile.
    m_giveBackTimer->stop();
    const CoreMapping mapping = coreMapping();
    std::erase_if(m_lent, [&](const auto &lent) { return mapping.symbolAt(lent.second) != lent.first; });
    std::vector<xcb_keycode_t> pool = mapping.spareKeys();
    for (const auto &[sym, key] : m_lent)
        pool.push_back(key);
    if (pool.empty() || mapping.perKeycode < 2) {
        logLine(tag, QStringLiteral("no spare key to type characters missing from the keyboard layout"));
        co_return false;
    }

    // In batches of as many distinct missing characters as there are spare keys.
    size_t next = 0;
    while (next < strokes.size()) {
        std::set<xkb_keysym_t> wanted;
        size_t end = next;
        for (; end < strokes.size(); ++end) {
            if (strokes[end].position || wanted.count(strokes[end].missing))
                continue;
            if (wanted.size() == pool.size())
                break;
            wanted.insert(strokes[end].missing);
        }
        std::set<xcb_keycode_t> used;
        for (xkb_keysym_t sym : wanted)
            if (const auto lent = m_lent.find(sym); lent != m_lent.end())
                used.insert(lent->second);
        bool remapped = false;
        for (xkb_keysym_t sym : wanted) {
            if (m_lent.count(sym))
                continue;
            const auto key = std::find_if(pool.begin(), pool.end(), [&](xcb_keycode_t k) { return !used.count(k); });
            std::erase_if(m_lent, [&](const auto &lent) { return lent.second == *key; });
            std::vector<xcb_keysym_t> row(static_cast<size_t>(mapping.perKeycode), XCB_NO_SYMBOL);
            row[0] = row[1] = sym;
            xcb_change_keyboard_mapping(m_connection, 1, *key, static_cast<uint8_t>(mapping.perKeycode), row.data());
            m_lent[sym] = *key;
            used.insert(*key);
            remapped = true;
        }
        if (remapped) {
            sync();
            co_await QCoro::sleepFor(remapSettle);
        }
        for (size_t i = next; i < end; ++i) {
            if (strokes[i].position)
                tap(strokes[i].position->modifiers, strokes[i].position->keycode);
            else
                tap({}, m_lent.at(strokes[i].missing));
        }
        sync();
        next = end;
        // The next batch lends the same keys to other characters: not before this one is read.
        if (next < strokes.size())
            co_await QCoro::sleepFor(remapLinger);
    }
    m_giveBackTimer->start(remapLinger);
    co_return true;
}
