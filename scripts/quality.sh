#!/usr/bin/env bash
# Builds the system and measures the stand-in refocus engine: depth against a photo's ground truth,
# rendering against ray-traced scenes, time and memory at 12 megapixels. Prints each figure beside
# what it must and should reach; fails if a must is missed. Needs Debian 12 and root or sudo; a
# second run needs neither them nor a network.
#   --quick         small scenes, small pictures
#   --pictures DIR  also writes all pictures there
#   --help          lists the rest
set -euo pipefail
cd "$(dirname "$(readlink -f "${BASH_SOURCE[0]}")")/.."

photo=build/demo/photo
scripts/install-packages demo test
cmake --preset release >/dev/null
cmake --build --preset release --target refocus_quality -- --quiet
scripts/fetch-motorcycle "$photo"
build/release/bin/refocus_quality --motorcycle "$photo" "$@"
