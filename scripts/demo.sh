#!/usr/bin/env bash
# Builds the system and renders a photo twice: focused on a motorcycle's handlebar, then on the wall
# behind it. What the node dumps of the first lies in a device's folders. Needs Debian 12 and root or sudo; a second run needs neither them nor a network.
set -euo pipefail

root="$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)"
cd "$root"
demo="$root/build/demo"
work=""
trap 'rm -rf "$work"' EXIT

# The package's file, into $work; nothing is installed.
download() {
    # root downloads as itself: apt's own user may not write here
    (cd "$work" && apt-get -q -o APT::Sandbox::User=root download "$1")
}

update_lists() {
    if [ "$(id -u)" -eq 0 ]; then apt-get -q update; else sudo apt-get -q update; fi
}

# A stereo photo that a Debian package carries.
fetch_photo() {
    local package=python3-skimage
    if [ -f "$demo/photo/motorcycle_left.png" ] && [ -f "$demo/photo/motorcycle_right.png" ]; then
        return
    fi
    echo "Fetching the photo out of the package $package"
    mkdir -p "$demo/photo"
    work="$(mktemp -d "$demo/fetch.XXXXXX")"
    if ! download "$package" 2>/dev/null; then # a fresh machine has no package lists yet
        update_lists
        download "$package"
    fi
    dpkg-deb --fsys-tarfile "$work"/"$package"_*.deb |
        tar -x -C "$work" --wildcards '*/motorcycle_left.png' '*/motorcycle_right.png'
    find "$work" -name 'motorcycle_*.png' -exec mv {} "$demo/photo/" \;
}

render() { # folder, X,Y, further options
    local folder="$1" focus="$2"
    shift 2
    build/release/bin/bokehnode render "$demo/photo/motorcycle_left.png" \
        "$demo/photo/motorcycle_right.png" -o "$demo/$folder" --focus "$focus" "$@"
}

scripts/install-packages demo
cmake --preset release -DBUILD_TESTING=OFF -DBUILD_BENCH=OFF
cmake --build --preset release --target bokehnode
fetch_photo
rm -rf "$demo/device"
render handlebar 495,130 --dump --device-root "$demo/device"
render wall 175,75

cat <<END

The photo:                $demo/photo/motorcycle_left.png
Focused on the handlebar: $demo/handlebar/output.png
Focused on the far wall:  $demo/wall/output.png
The scene's depth:        $demo/handlebar/disparity.png
Dumps, as on a device:    $demo/device/data/vendor/camera
END
