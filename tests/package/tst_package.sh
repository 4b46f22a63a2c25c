#!/usr/bin/env bash
# tst_package.sh SOURCE_DIR BUILD_DIR: dev/package over the built tree (which
# fails on a lintian error), then the package's contents and control fields,
# and its command line run from an unpacked root, where nothing of the build
# tree is at hand: the programs' RUNPATH and the capture program's relative
# path must hold in the installed layout.
set -euo pipefail
src=$1
build=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

deb=$("$src/dev/package" --build-dir "$build" --output "$work/out" | tail -n 1)
version=$(sed -n 's/^project(SorvelandrixRecorder VERSION \([0-9.]*\).*/\1/p' "$src/CMakeLists.txt")
[ "$(basename "$deb")" = "sorvelandrix-recorder_${version}_amd64.deb" ] || fail "named $deb"

depends=$(dpkg-deb -f "$deb" Depends)
for lib in libc6 libqt6core6 libqt6quick6 libpulse0 libavcodec59 libfido2-1 qml6-module-qtquick-controls; do
  [[ "$depends" == *"$lib"* ]] || fail "Depends lacks $lib: $depends"
done

dpkg-deb -x "$deb" "$work/root"
for f in usr/bin/sorvelandrix usr/bin/sorvelandrix-recorder usr/bin/sorvelandrix-local-service \
         usr/libexec/sorvelandrix/sorvelandrix-capture \
         usr/share/applications/sorvelandrix-recorder.desktop \
         usr/share/dbus-1/services/com.sorvelandrix.Recorder.service \
         usr/share/icons/hicolor/scalable/apps/sorvelandrix-recorder.svg \
         usr/share/man/man1/sorvelandrix.1.gz usr/share/man/man1/sorvelandrix-recorder.1.gz; do
  [ -e "$work/root/$f" ] || fail "no $f in the package"
done
# The private directory under lib (or lib/<multiarch> when configured for /usr).
[ -n "$(find "$work/root/usr/lib" -path '*/sorvelandrix/libsorvelandrix-fido2.so')" ] ||
  fail "no FIDO2 module in the package"
grep -q '^Exec=/usr/bin/sorvelandrix-recorder' \
  "$work/root/usr/share/dbus-1/services/com.sorvelandrix.Recorder.service" ||
  fail "the D-Bus service file does not start /usr/bin/sorvelandrix-recorder"

# From the unpacked root, with the build tree out of reach.
cli="$work/root/usr/bin/sorvelandrix"
if readelf -d "$cli" "$work/root/usr/libexec/sorvelandrix/sorvelandrix-capture" | grep -q "$build"; then
  fail "a program of the package still looks in the build tree"
fi
out=$(env -i PATH=/usr/bin:/bin HOME="$work" "$cli" --version)
[[ "$out" == *"$version"* ]] || fail "--version printed: $out"
env -i PATH=/usr/bin:/bin HOME="$work" "$cli" --help | grep -q "record" || fail "--help"
# A capture command reaches sorvelandrix-capture beside it: without a
# display it ends with the capture program's own message.
set +e
out=$(env -i PATH=/usr/bin:/bin HOME="$work" XDG_RUNTIME_DIR="$work" "$cli" targets 2>&1)
set -e
[[ "$out" == *"No display found for screen capture."* ]] || fail "targets printed: $out"
echo "ok: $(basename "$deb")"
