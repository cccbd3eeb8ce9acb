#!/bin/sh
# Checks that the build tools are here; on Debian, as root, installs what is
# missing, otherwise names the packages to install.  man-db is wanted only
# by the test of the manual page, which skips without it: its absence is
# told but stops nothing.
missing=""
command -v cmake >/dev/null 2>&1 || missing="$missing cmake"
command -v g++ >/dev/null 2>&1 || missing="$missing g++"
[ -f /usr/include/gtest/gtest.h ] || missing="$missing libgtest-dev"
wanted=""
command -v man >/dev/null 2>&1 || wanted="$wanted man-db"
[ -z "$missing$wanted" ] && exit 0
if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null 2>&1; then
    echo "installing:$missing$wanted"
    apt-get update -q >/dev/null && DEBIAN_FRONTEND=noninteractive apt-get install -y -q $missing $wanted >/dev/null && exit 0
    [ -z "$missing" ] && { echo "could not install:$wanted (the manual page test will skip)" >&2; exit 0; }
    echo "could not install:$missing" >&2
    exit 1
fi
[ -n "$wanted" ] && echo "wanted:$wanted -- the manual page test skips without it" >&2
[ -z "$missing" ] && exit 0
echo "missing:$missing -- install with: sudo apt-get install$missing" >&2
exit 1
