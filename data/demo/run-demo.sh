#!/bin/sh
# Plays the demo scenario into mapwright.
#   data/demo/run-demo.sh [BUILD_DIR] [more kestrel-sim options]
# The configuration template is copied to BUILD_DIR/demo-config on first
# use, so mapwright's own saves never land in the source tree; delete that
# folder to start afresh.
set -eu
here=$(cd "$(dirname "$0")" && pwd)
build=$here/../../build
case ${1:-} in
  ""|-*) ;;
  *) build=$1; shift ;;
esac
sim="$build/bin/kestrel-sim"
if [ ! -x "$sim" ]; then
  echo "run-demo: $sim not found; build the kestrel-sim and mapwright targets first" >&2
  exit 2
fi
config="$build/demo-config"
if [ ! -d "$config" ]; then
  mkdir -p "$config"
  cp -R "$here/config/." "$config/"
fi
exec "$sim" --config "$config" --scenario "$here/scenario.txt" "$@"
