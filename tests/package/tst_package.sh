#!/usr/bin/env bash
# Packs this build tree with CPack, unpacks the .deb with dpkg-deb into a
# temporary root and runs the programs from there, as a site would after
# installing it. Exits 77 (skipped) when the Debian packaging tools are
# missing. Usage: tst_package.sh CPACK BUILD_DIR SOURCE_DIR VERSION
set -euo pipefail
cpack=$1 build=$2 source=$3 version=$4
id=io.github.mapwright.Mapwright
programs=(mapwright kestrel-sim mapwright-render mapwright-layerinfo mapwright-cache)

for tool in "$cpack" dpkg-deb dpkg-shlibdeps; do
  if ! command -v "$tool" >/dev/null; then
    echo "SKIP: $tool is missing (Debian packages cmake and dpkg-dev)"
    exit 77
  fi
done
for tool in desktop-file-validate:desktop-file-utils appstreamcli:appstream; do
  command -v "${tool%%:*}" >/dev/null || { echo "FAIL: ${tool%%:*} is missing (Debian package ${tool#*:})"; exit 1; }
done

failures=0
fail() { echo "FAIL: $*"; failures=$((failures + 1)); }
tmp=$(mktemp -d)
trap 'rm -rf "$tmp"' EXIT

# The tree is built already: CPack only installs and packs.
if ! "$cpack" --config "$build/CPackConfig.cmake" -B "$tmp/out" > "$tmp/cpack.log" 2>&1; then
  cat "$tmp/cpack.log"
  echo "FAIL: cpack"
  exit 1
fi
deb="$tmp/out/mapwright_${version}_$(dpkg --print-architecture).deb"
[[ -f $deb ]] || { ls -l "$tmp/out"; echo "FAIL: no $(basename "$deb")"; exit 1; }
echo "package: $(basename "$deb"), $(du -k "$deb" | cut -f1) KiB"

# The control fields: the libraries found by dpkg-shlibdeps, and the Qt
# plugins it cannot see.
depends=$(dpkg-deb -f "$deb" Depends)
echo "Depends: $depends"
for dep in libc6 libqt6core6 libqt6widgets6 libqt6network6 libqt6sql6-sqlite qt6-qpa-plugins; do
  grep -Eq "(^|, )$dep( |,|$)" <<<"$depends" || fail "Depends lacks $dep"
done
[[ $(dpkg-deb -f "$deb" Recommends) == *qt6-image-formats-plugins* ]] || fail "Recommends lacks qt6-image-formats-plugins"

root="$tmp/root"
dpkg-deb -x "$deb" "$root"
share="$root/usr/share"
doc="$share/doc/mapwright"

# The programs and nothing else in bin: no benchmark, no test.
installed=$(cd "$root/usr/bin" && ls | sort | tr '\n' ' ')
expected=$(printf '%s\n' "${programs[@]}" | sort | tr '\n' ' ')
[[ $installed == "$expected" ]] || fail "usr/bin holds '$installed', not '$expected'"

files=(
  "$share/mapwright/demo/scenario.txt"
  "$share/mapwright/demo/config/Maps/Mapwright.ini"
  "$share/mapwright/demo/config/Maps/Layers/Layers.xml"
  "$share/mapwright/demo/site/roads.shp"
  "$share/mapwright/demo/site/world.mbtiles"
  "$doc/README.md" "$doc/CREDITS.md" "$doc/copyright" "$doc/changelog.gz"
  "$share/applications/$id.desktop"
  "$share/metainfo/$id.metainfo.xml"
  "$share/icons/hicolor/scalable/apps/$id.svg"
)
for size in 16 32 48 64 128 256; do
  files+=("$share/icons/hicolor/${size}x${size}/apps/$id.png")
done
# Every licence text under data/, at the path CREDITS.md names it by.
while IFS= read -r -d '' licence; do
  files+=("$doc/${licence#"$source"/}")
done < <(find "$source/data" -type f \( -name '*LICENSE*' -o -name '*COPYING*' -o -path '*/LICENSES/*' \) -print0)
for file in "${files[@]}"; do
  [[ -f $file ]] || fail "missing ${file#"$root"}"
done
# Each manual page, compressed, with the text of its source.
for page in "$source"/man/*.1; do
  [[ -e $page ]] || continue
  packed="$share/man/man1/$(basename "$page").gz"
  if [[ ! -f $packed ]]; then
    fail "missing ${packed#"$root"}"
  elif ! gzip -dc "$packed" | cmp -s - "$page"; then
    fail "${packed#"$root"} differs from man/$(basename "$page")"
  fi
done

# The desktop entry and the metainfo as installed (validate-tree checks them
# against each other), and the metainfo with screenshots, as a build given
# MAPWRIGHT_SCREENSHOT_URL writes it.
desktop-file-validate "$share/applications/$id.desktop" || fail "desktop-file-validate"
appstreamcli validate-tree --no-net "$root" || fail "appstreamcli validate-tree"
sed -e "s|@MAPWRIGHT_SCREENSHOT_URL@|https://example.org/screenshots|g" -e "s|@PROJECT_VERSION@|$version|g" \
  "$source/packaging/$id.metainfo.xml.in" > "$tmp/$id.metainfo.xml"
appstreamcli validate --no-net "$tmp/$id.metainfo.xml" || fail "appstreamcli validate, with screenshots"
shots=$(grep -o 'https://example.org/screenshots/[^<]*' "$tmp/$id.metainfo.xml" | sed 's|.*/||')
[[ -n $shots ]] || fail "the metainfo names no screenshot"
for shot in $shots; do
  [[ -f $source/data/screenshots/$shot ]] || fail "screenshot data/screenshots/$shot is not in the repository"
done
grep -qx "Icon=$id" "$share/applications/$id.desktop" || fail "the desktop entry's icon is not $id"

# The programs run from the unpacked root, on nothing but what it holds
# and the system's libraries.
export XDG_RUNTIME_DIR="$tmp/run"
mkdir -m 700 "$XDG_RUNTIME_DIR"
for prog in "${programs[@]}"; do
  out=$(timeout 60 "$root/usr/bin/$prog" --version 2>&1) || fail "$prog --version: exit $?: $out"
  [[ $out == *"$version"* ]] || fail "$prog --version printed '$out'"
done

out=$(timeout 60 "$root/usr/bin/mapwright-layerinfo" "$share/mapwright/demo/site/roads.shp" 2>&1) ||
  fail "mapwright-layerinfo roads.shp: exit $?"
[[ $out == *'"fileType": "Shape"'* && $out == *'"class": "TvxMapPath"'* && $out != *'"error":'* ]] ||
  fail "mapwright-layerinfo roads.shp printed: ${out:0:400}"

# Started from the menu, with no parent: its message, and exit 0.
out=$(MAPWRIGHT_DIALOGS=stderr timeout 60 "$root/usr/bin/mapwright" 2>&1) || fail "mapwright with no arguments: exit $?"
[[ $out == *"Can Only Be Launched From"* ]] || fail "mapwright with no arguments printed: $out"

# The installed demo, filled in as scripts/demo does, renders with its
# layers and its static markers, whose images are compiled in.
config="$tmp/config"
cp -r "$share/mapwright/demo/config" "$config"
{ grep -rlZ '@DEMO_DIR@' "$config" || true; } | xargs -0 -r sed -i "s|@DEMO_DIR@|$share/mapwright/demo|g"
timeout 120 "$root/usr/bin/mapwright-render" --config "$config" --size 320x240 --wait 1 --out "$tmp/demo.png" ||
  fail "mapwright-render of the installed demo: exit $?"
[[ -s $tmp/demo.png ]] || fail "mapwright-render wrote no PNG of the installed demo"

if ((failures)); then
  echo "$failures failed"
  exit 1
fi
echo "package: all checks passed"
