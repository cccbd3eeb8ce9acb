#!/bin/sh
# Checks that the build tools are here; on Debian, as root, installs what is
# missing, otherwise names the packages to install.
missing=""
command -v cmake >/dev/null 2>&1 || missing="$missing cmake"
command -v g++ >/dev/null 2>&1 || missing="$missing g++"
[ -f /usr/include/gtest/gtest.h ] || missing="$missing libgtest-dev"
[ -z "$missing" ] && exit 0
if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null 2>&1; then
    echo "installing:$missing"
    apt-get update -q >/dev/null && DEBIAN_FRONTEND=noninteractive apt-get install -y -q $missing >/dev/null && exit 0
    echo "could not install:$missing" >&2
    exit 1
fi
echo "missing:$missing -- install with: sudo apt-get install$missing" >&2
exit 1
