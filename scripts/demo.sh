#!/usr/bin/env bash
# Builds the system and renders a photo twice: focused on a motorcycle's handlebar, then on the wall
# behind it. What the node dumps of the first lies in a device's folders. Needs Debian 12 and root or
# sudo; a second run needs neither them nor a network.
set -euo pipefail

root="$(cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.." && pwd)"
cd "$root"
demo="$root/build/demo"

render() { # folder, X,Y, further options
    local folder="$1" focus="$2"
    shift 2
    build/release/bin/bokehnode render "$demo/photo/motorcycle_left.png" \
        "$demo/photo/motorcycle_right.png" -o "$demo/$folder" --focus "$focus" "$@"
}

scripts/install-packages demo
cmake --preset release -DBUILD_TESTING=OFF -DBUILD_BENCH=OFF
cmake --build --preset release --target bokehnode
scripts/fetch-motorcycle "$demo/photo"
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
