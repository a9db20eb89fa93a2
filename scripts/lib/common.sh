# Shared by scripts/run and scripts/test: the packages Parlanto needs on Debian 12, and the build.
# shellcheck shell=bash

PARLANTO_ROOT=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
PARLANTO_BUILD=${PARLANTO_BUILD:-$PARLANTO_ROOT/build}

# Needed to build and run the program.
RUN_PACKAGES=(
    cmake ninja-build g++ pkg-config
    qt6-base-dev qt6-base-dev-tools qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools libqt6svg6-dev
    qcoro-qt6-dev libsecret-1-dev libatspi2.0-dev
    libxcb1-dev libxcb-xtest0-dev libxcb-xkb-dev libxcb-xinput-dev libxcb-keysyms1-dev libxkbcommon-x11-dev libxcb-xfixes0-dev
    libcld2-dev apertium apertium-eng-spa apertium-fr-es apertium-es-pt apertium-spa-ita cg3
    at-spi2-core gnome-keyring dbus-x11 libglib2.0-bin xdg-utils desktop-file-utils qt6-translations-l10n
)
# Needed only by the tests: the desktop test session and the real applications they drive.
TEST_PACKAGES=(
    xvfb openbox dunst trayer x11-utils x11-apps xdotool imagemagick libsecret-tools
    xterm mousepad python3-gi gir1.2-gtk-3.0 gir1.2-atspi-2.0 xclip x11-xkb-utils
)

log() { printf '[scripts] %s\n' "$*" >&2; }
die() { printf '[scripts] error: %s\n' "$*" >&2; exit 1; }

# Installs whichever of the given packages are missing (apt-get; sudo when not root).
ensure_packages() {
    local missing=() pkg
    for pkg in "$@"; do
        dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed' || missing+=("$pkg")
    done
    [ ${#missing[@]} -eq 0 ] && return 0
    log "installing: ${missing[*]}"
    local sudo=()
    if [ "$(id -u)" -ne 0 ]; then
        command -v sudo >/dev/null || die "not root and no sudo: install ${missing[*]} by hand"
        sudo=(sudo)
    fi
    export DEBIAN_FRONTEND=noninteractive
    "${sudo[@]}" apt-get update -qq || die "apt-get update failed"
    "${sudo[@]}" apt-get install -y -qq --no-install-recommends "${missing[@]}" || die "could not install ${missing[*]}"
}

# Configures (once) and builds the program, and the tests when asked.
build() {
    local testing=${1:-OFF}
    if [ ! -f "$PARLANTO_BUILD/CMakeCache.txt" ]; then
        cmake -S "$PARLANTO_ROOT" -B "$PARLANTO_BUILD" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
            -DBUILD_TESTING="$testing" >/dev/null || die "cmake configure failed"
    else
        cmake -S "$PARLANTO_ROOT" -B "$PARLANTO_BUILD" -DBUILD_TESTING="$testing" >/dev/null || die "cmake configure failed"
    fi
    cmake --build "$PARLANTO_BUILD" || die "build failed"
}
