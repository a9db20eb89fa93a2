<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name>Parlanto</name>
    <message id="menu.settings">
        <source>Settings…</source>
        <translation>Settings…</translation>
    </message>
    <message id="menu.quit">
        <source>Quit Parlanto</source>
        <translation>Quit Parlanto</translation>
    </message>
    <message id="popup.copy">
        <source>Copy</source>
        <translation>Copy</translation>
    </message>
    <message id="notification.translation_ready">
        <source>Your translation is ready and on the clipboard. Click to copy it again.</source>
        <translation>Your translation is ready and on the clipboard. Click to copy it again.</translation>
    </message>
    <message id="notification.action.copy">
        <source>Copy again</source>
        <translation>Copy again</translation>
    </message>
    <message id="notification.quota_exceeded.title">
        <source>Translation quota used up</source>
        <translation>Translation quota used up</translation>
    </message>
    <message id="notification.quota_exceeded.body_wait">
        <source>You have used this month's translation characters. Your quota renews at the start of next month.</source>
        <translation>You have used this month's translation characters. Your quota renews at the start of next month.</translation>
    </message>
    <message id="notification.text_too_long">
        <source>Text too long (max 5,000 characters)</source>
        <translation>Text too long (max 5,000 characters)</translation>
    </message>
    <message id="notification.timeout">
        <source>Translation timed out</source>
        <translation>Translation timed out</translation>
    </message>
    <message id="notification.unauthorized">
        <source>Your session has expired. Please sign in again.</source>
        <translation>Your session has expired. Please sign in again.</translation>
    </message>
    <message id="notification.network_error">
        <source>Translation failed — no network connection.</source>
        <translation>Translation failed — no network connection.</translation>
    </message>
    <message id="notification.unknown_error">
        <source>Translation failed, try again</source>
        <translation>Translation failed, try again</translation>
    </message>
    <message id="notification.translation_copied">
        <source>Translation copied — press Ctrl+V to paste</source>
        <translation>Translation copied — press Ctrl+V to paste</translation>
    </message>
    <message id="permission.title">
        <source>Parlanto needs access to other applications</source>
        <translation>Parlanto needs access to other applications</translation>
    </message>
    <message id="permission.body">
        <source>To read the text you select and to paste translations, Parlanto must be allowed to control your computer through accessibility.</source>
        <translation>To read the text you select and to paste translations, Parlanto must be allowed to control your computer through accessibility.</translation>
    </message>
    <message id="permission.step1">
        <source>1. Open your system's accessibility settings with the button below.</source>
        <translation>1. Open your system's accessibility settings with the button below.</translation>
    </message>
    <message id="permission.step2">
        <source>2. Switch on assistive technologies (screen reader support) for your session.</source>
        <translation>2. Switch on assistive technologies (screen reader support) for your session.</translation>
    </message>
    <message id="permission.step3">
        <source>3. Come back here: this window closes by itself as soon as access is granted.</source>
        <translation>3. Come back here: this window closes by itself as soon as access is granted.</translation>
    </message>
    <message id="permission.bus.step1">
        <source>1. Install the accessibility bus: sudo apt-get install at-spi2-core.</source>
        <translation>1. Install the accessibility bus: sudo apt-get install at-spi2-core.</translation>
    </message>
    <message id="permission.bus.step2">
        <source>2. Log out and back in, so that your session starts it.</source>
        <translation>2. Log out and back in, so that your session starts it.</translation>
    </message>
    <message id="permission.bus.step3">
        <source>3. Start Parlanto again: this window closes by itself once the bus answers.</source>
        <translation>3. Start Parlanto again: this window closes by itself once the bus answers.</translation>
    </message>
    <message id="permission.x11.step1">
        <source>1. Parlanto needs an X11 session: choose an X11 (Xorg) session at the login screen.</source>
        <translation>1. Parlanto needs an X11 session: choose an X11 (Xorg) session at the login screen.</translation>
    </message>
    <message id="permission.x11.step2">
        <source>2. Your X server must offer the XTest and XInput 2 extensions (every standard Xorg server does).</source>
        <translation>2. Your X server must offer the XTest and XInput 2 extensions (every standard Xorg server does).</translation>
    </message>
    <message id="permission.x11.step3">
        <source>3. Log in again and start Parlanto: this window closes by itself once they are there.</source>
        <translation>3. Log in again and start Parlanto: this window closes by itself once they are there.</translation>
    </message>
    <message id="permission.open_settings">
        <source>Open Settings</source>
        <translation>Open Settings</translation>
    </message>
    <message id="settings.title">
        <source>Parlanto Settings</source>
        <translation>Parlanto Settings</translation>
    </message>
    <message id="settings.tab.general">
        <source>General</source>
        <translation>General</translation>
    </message>
    <message id="settings.tab.translation">
        <source>Translation</source>
        <translation>Translation</translation>
    </message>
    <message id="general.section.behavior">
        <source>Behavior</source>
        <translation>Behavior</translation>
    </message>
    <message id="general.launch_at_login">
        <source>Launch at login</source>
        <translation>Launch at login</translation>
    </message>
    <message id="general.auto_replace">
        <source>Replace the selected text with its translation</source>
        <translation>Replace the selected text with its translation</translation>
    </message>
    <message id="general.inline_translation">
        <source>Inline translation (type text, then @lang and a space)</source>
        <translation>Inline translation (type text, then @lang and a space)</translation>
    </message>
    <message id="general.inline_note">
        <source>Example: type “Good morning @ja” followed by a space in any text field.</source>
        <translation>Example: type “Good morning @ja” followed by a space in any text field.</translation>
    </message>
    <message id="general.popup_dismiss_delay">
        <source>Close the translation popup after:</source>
        <translation>Close the translation popup after:</translation>
    </message>
    <message id="general.popup_dismiss_5s">
        <source>5 seconds</source>
        <translation>5 seconds</translation>
    </message>
    <message id="general.popup_dismiss_10s">
        <source>10 seconds</source>
        <translation>10 seconds</translation>
    </message>
    <message id="general.popup_dismiss_30s">
        <source>30 seconds</source>
        <translation>30 seconds</translation>
    </message>
    <message id="general.popup_dismiss_60s">
        <source>1 minute</source>
        <translation>1 minute</translation>
    </message>
    <message id="general.popup_dismiss_never">
        <source>Never</source>
        <translation>Never</translation>
    </message>
    <message id="general.section.output_format">
        <source>Output Format</source>
        <translation>Output Format</translation>
    </message>
    <message id="general.translate_only">
        <source>Translation only</source>
        <translation>Translation only</translation>
    </message>
    <message id="general.original_translation">
        <source>Original and translation</source>
        <translation>Original and translation</translation>
    </message>
    <message id="general.template">
        <source>Template</source>
        <translation>Template</translation>
    </message>
    <message id="general.template_hint">
        <source>Use {original} for the selected text and {translated} for its translation.</source>
        <translation>Use {original} for the selected text and {translated} for its translation.</translation>
    </message>
    <message id="general.preview">
        <source>Preview</source>
        <translation>Preview</translation>
    </message>
    <message id="general.section.default_language">
        <source>Default Language</source>
        <translation>Default Language</translation>
    </message>
    <message id="general.default_lang_note">
        <source>The language you usually translate into.</source>
        <translation>The language you usually translate into.</translation>
    </message>
    <message id="general.section.hotkeys">
        <source>Hotkeys</source>
        <translation>Hotkeys</translation>
    </message>
    <message id="general.hotkeys.col.language">
        <source>Language</source>
        <translation>Language</translation>
    </message>
    <message id="general.hotkeys.col.shortcut">
        <source>Shortcut</source>
        <translation>Shortcut</translation>
    </message>
    <message id="general.hotkeys.col.enabled">
        <source>Enabled</source>
        <translation>Enabled</translation>
    </message>
    <message id="hotkey.add">
        <source>Add a hotkey</source>
        <translation>Add a hotkey</translation>
    </message>
    <message id="hotkey.delete">
        <source>Remove this hotkey</source>
        <translation>Remove this hotkey</translation>
    </message>
    <message id="recorder.click_to_set">
        <source>Click to set</source>
        <translation>Click to set</translation>
    </message>
    <message id="recorder.type_shortcut">
        <source>Type shortcut…</source>
        <translation>Type shortcut…</translation>
    </message>
    <message id="alert.hotkey_conflict.title">
        <source>This shortcut is often used to paste without formatting</source>
        <translation>This shortcut is often used to paste without formatting</translation>
    </message>
    <message id="alert.hotkey_conflict.message">
        <source>Many applications paste plain text with this shortcut. While Parlanto uses it, it will translate instead of pasting in those applications.</source>
        <translation>Many applications paste plain text with this shortcut. While Parlanto uses it, it will translate instead of pasting in those applications.</translation>
    </message>
    <message id="alert.use_anyway">
        <source>Use Anyway</source>
        <translation>Use Anyway</translation>
    </message>
    <message id="alert.cancel">
        <source>Cancel</source>
        <translation>Cancel</translation>
    </message>
    <message id="alert.launch_at_login.title">
        <source>Launch Parlanto at Login?</source>
        <translation>Launch Parlanto at Login?</translation>
    </message>
    <message id="alert.launch_at_login.message">
        <source>Parlanto works best as a background app. Would you like it to start automatically when you log in?</source>
        <translation>Parlanto works best as a background app. Would you like it to start automatically when you log in?</translation>
    </message>
    <message id="alert.launch_at_login.yes">
        <source>Yes, Launch at Login</source>
        <translation>Yes, Launch at Login</translation>
    </message>
    <message id="alert.launch_at_login.not_now">
        <source>Not Now</source>
        <translation>Not Now</translation>
    </message>
    <message id="translation.engine">
        <source>Translation engine:</source>
        <translation>Translation engine:</translation>
    </message>
    <message id="translation.engine.service">
        <source>Parlanto web service</source>
        <translation>Parlanto web service</translation>
    </message>
    <message id="translation.engine.offline">
        <source>Offline (Apertium, on this computer)</source>
        <translation>Offline (Apertium, on this computer)</translation>
    </message>
    <message id="translation.engine.deepl">
        <source>DeepL</source>
        <translation>DeepL</translation>
    </message>
    <message id="translation.engine.libretranslate">
        <source>LibreTranslate</source>
        <translation>LibreTranslate</translation>
    </message>
    <message id="translation.engine.openai">
        <source>OpenAI-compatible model</source>
        <translation>OpenAI-compatible model</translation>
    </message>
    <message id="translation.test.title">
        <source>Try it</source>
        <translation>Try it</translation>
    </message>
    <message id="translation.test.button">
        <source>Test</source>
        <translation>Test</translation>
    </message>
    <message id="translation.test.explanation">
        <source>Translates “%1” with the engine chosen above.</source>
        <translation>Translates “%1” with the engine chosen above.</translation>
    </message>
    <message id="translation.test.running">
        <source>Translating…</source>
        <translation>Translating…</translation>
    </message>
    <message id="translation.test.result">
        <source>“%1” → “%2”</source>
        <translation>“%1” → “%2”</translation>
    </message>
    <message id="translation.account.title">
        <source>Parlanto account</source>
        <translation>Parlanto account</translation>
    </message>
    <message id="translation.account.token_placeholder">
        <source>Paste your account token</source>
        <translation>Paste your account token</translation>
    </message>
    <message id="translation.account.sign_in">
        <source>Sign In</source>
        <translation>Sign In</translation>
    </message>
    <message id="translation.account.sign_out">
        <source>Sign Out</source>
        <translation>Sign Out</translation>
    </message>
    <message id="translation.account.explanation">
        <source>The token is kept in your system's keyring and sent only to the Parlanto service.</source>
        <translation>The token is kept in your system's keyring and sent only to the Parlanto service.</translation>
    </message>
    <message id="translation.account.signed_in">
        <source>Signed in</source>
        <translation>Signed in</translation>
    </message>
    <message id="translation.account.signed_out">
        <source>Not signed in</source>
        <translation>Not signed in</translation>
    </message>
    <message id="translation.account.save_failed">
        <source>The keyring did not accept the token.</source>
        <translation>The keyring did not accept the token.</translation>
    </message>
    <message id="translation.quota.unknown">
        <source>Characters left this month: shown after your next translation</source>
        <translation>Characters left this month: shown after your next translation</translation>
    </message>
    <message id="translation.quota.remaining">
        <source>Characters left this month: %1</source>
        <translation>Characters left this month: %1</translation>
    </message>
    <message id="translation.offline.explanation">
        <source>Translates on this computer with Apertium: no account and no network, nothing leaves your computer. It knows fewer languages than the online engines.</source>
        <translation>Translates on this computer with Apertium: no account and no network, nothing leaves your computer. It knows fewer languages than the online engines.</translation>
    </message>
    <message id="translation.url">
        <source>Server URL:</source>
        <translation>Server URL:</translation>
    </message>
    <message id="translation.url.deepl_automatic">
        <source>Chosen from the key (Free or Pro API)</source>
        <translation>Chosen from the key (Free or Pro API)</translation>
    </message>
    <message id="translation.model">
        <source>Model:</source>
        <translation>Model:</translation>
    </message>
    <message id="translation.key">
        <source>API key:</source>
        <translation>API key:</translation>
    </message>
    <message id="translation.key_placeholder">
        <source>Paste your API key</source>
        <translation>Paste your API key</translation>
    </message>
    <message id="translation.key_explanation">
        <source>Keys are kept in your system's keyring, never in the settings file.</source>
        <translation>Keys are kept in your system's keyring, never in the settings file.</translation>
    </message>
</context>
</TS>
