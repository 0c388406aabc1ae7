#!/usr/bin/env bash
# Installs what is missing of the Debian packages of the groups named, and does nothing when nothing
# is: no list is fetched then, and no rights are needed.
#
#     tools/install-packages.sh build|display|test ...

set -euo pipefail

packages_of() {
    case "$1" in
    build) # the program itself
        echo g++ cmake ninja-build pkg-config libgtk-3-dev libgettextpo-dev fonts-dejavu-core
        ;;
    display) # a screen where there is none, and a picture of it
        echo xvfb xauth openbox imagemagick x11-utils xdotool
        ;;
    test)
        echo ccache libgtest-dev libfuse3-dev python3 gettext
        # A second compiler, the sanitizers' and fuzzers' runtimes, readable traces, style.
        echo clang-14 libclang-rt-14-dev llvm-14 clang-format-14 clang-tidy-14
        # Sessions for windows.
        echo dbus-daemon weston
        # Those who read what is installed.
        echo desktop-file-utils appstream libxml2-utils man-db bash-completion python3-yaml
        # Another view of the trash.
        echo gvfs libglib2.0-bin
        # The logo's picture of its drawing.
        echo librsvg2-bin
        # What all languages are written with.
        echo fonts-noto-core fonts-noto-cjk
        # File systems to copy between, and peers to compare with.
        echo fuse3 sshfs openssh-client openssh-server btrfs-progs xfsprogs e2fsprogs
        echo rsync procps util-linux mount strace
        # Archivers.
        echo tar gzip xz-utils bzip2 zstd lz4 lzip zip unzip p7zip-full
        ;;
    *)
        echo "install-packages.sh: no group '$1' (build, display, test)" >&2
        exit 2
        ;;
    esac
}

is_installed() {
    [ "$(dpkg-query -W -f '${db:Status-Status}' "$1" 2>/dev/null)" = installed ]
}

# Installing a server starts it where systemd runs, and nobody has asked for one. The tests that
# need it then skip themselves and say so.
is_wanted() {
    [ "$1" != openssh-server ] || [ ! -d /run/systemd/system ] || [ -n "${CI:-}" ]
}

missing=()
for group in "$@"; do
    for package in $(packages_of "$group"); do
        if command -v dpkg-query >/dev/null && is_installed "$package"; then
            continue
        fi
        is_wanted "$package" && missing+=("$package")
    done
done
[ ${#missing[@]} -gt 0 ] || exit 0

if ! command -v apt-get >/dev/null; then
    echo "This is no Debian; what its packages hold must be here already: ${missing[*]}" >&2
    exit 0
fi

as_root=()
if [ "$(id -u)" -ne 0 ]; then
    if ! command -v sudo >/dev/null; then
        echo "Missing packages, and no sudo to install them. As root:" >&2
        echo "    apt-get install ${missing[*]}" >&2
        exit 1
    fi
    as_root=(sudo)
    [ -t 0 ] || as_root=(sudo -n)
fi

echo "Installing: ${missing[*]}"
export DEBIAN_FRONTEND=noninteractive
apt=("${as_root[@]}" env DEBIAN_FRONTEND=noninteractive apt-get -q -o DPkg::Lock::Timeout=300)
log=$(mktemp)
trap 'rm -f "$log"' EXIT
if ! { "${apt[@]}" update && "${apt[@]}" install -y --no-install-recommends "${missing[@]}"; } \
    >"$log" 2>&1 </dev/null; then
    tail -n 20 "$log" >&2
    echo "The packages could not be installed." >&2
    exit 1
fi
