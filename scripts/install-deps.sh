#!/usr/bin/env bash
# Installs what the build and the tests need, and nothing when everything is there.
# Debian/Ubuntu through apt (only missing packages), macOS through Homebrew.
# --bench adds the peer tools `make bench` measures against (Debian/Ubuntu only).
# --fuzz adds clang with libFuzzer and llvm-symbolizer for `make fuzz` (Debian/Ubuntu only).
# --clang adds clang for CI's second build, which catches clang-only warnings on Linux.
set -euo pipefail

DEB_PACKAGES=(
    g++ make cmake ninja-build pkg-config
    qt6-base-dev qt6-svg-dev libplist-dev libicu-dev libx11-dev libxfixes-dev
    xvfb xauth xdotool fonts-noto-cjk desktop-file-utils qt6-translations-l10n
    python3 python3-yaml
)
for arg in "$@"; do
    case "$arg" in
    --bench) DEB_PACKAGES+=(gdu fd-find time libglib2.0-bin trash-cli) ;;
    --fuzz) DEB_PACKAGES+=(clang libclang-rt-14-dev llvm) ;;
    --clang) DEB_PACKAGES+=(clang) ;;
    *)
        echo "install-deps: unknown option $arg (only --bench, --fuzz, --clang)" >&2
        exit 2
        ;;
    esac
done
# Current Homebrew names (pkg-config is now pkgconf). icu4c is keg-only: the Makefile adds
# its prefix to CMake's search path, as it does Qt's.
BREW_PACKAGES=(cmake ninja pkgconf qt libplist icu4c)

missing_deb() {
    local pkg
    for pkg in "${DEB_PACKAGES[@]}"; do
        if ! dpkg-query -W -f='${Status}' "$pkg" 2>/dev/null | grep -q 'install ok installed'; then
            printf '%s\n' "$pkg"
        fi
    done
}

install_deb() {
    local missing
    mapfile -t missing < <(missing_deb)
    [ "${#missing[@]}" -eq 0 ] && return 0
    echo "install-deps: installing ${missing[*]}" >&2
    local cmd=(env DEBIAN_FRONTEND=noninteractive apt-get install -y --no-install-recommends "${missing[@]}")
    if [ "$(id -u)" -eq 0 ]; then
        apt-get update -q && "${cmd[@]}"
    elif command -v sudo >/dev/null 2>&1 && sudo -n true 2>/dev/null; then
        sudo apt-get update -q && sudo "${cmd[@]}"
    else
        echo "install-deps: cannot install as this user; run as root:" >&2
        echo "  apt-get install -y --no-install-recommends ${missing[*]}" >&2
        return 1
    fi
}

install_brew() {
    if ! command -v brew >/dev/null 2>&1; then
        echo "install-deps: Homebrew is needed on macOS (https://brew.sh), then:" >&2
        echo "  brew install ${BREW_PACKAGES[*]}" >&2
        return 1
    fi
    local pkg missing=()
    for pkg in "${BREW_PACKAGES[@]}"; do
        brew list --versions "$pkg" >/dev/null 2>&1 || missing+=("$pkg")
    done
    [ "${#missing[@]}" -eq 0 ] && return 0
    echo "install-deps: brew install ${missing[*]}" >&2
    HOMEBREW_NO_AUTO_UPDATE=1 brew install "${missing[@]}"
}

case "$(uname -s)" in
Linux)
    if ! command -v dpkg-query >/dev/null 2>&1; then
        echo "install-deps: not a Debian/Ubuntu system; install by hand: ${DEB_PACKAGES[*]}" >&2
        exit 1
    fi
    install_deb
    ;;
Darwin) install_brew ;;
*)
    echo "install-deps: unsupported system $(uname -s)" >&2
    exit 1
    ;;
esac
