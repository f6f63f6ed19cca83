#!/usr/bin/env bash
# Installs what the tests need and a fresh Debian 12 machine lacks: the Debian packages (through
# apt-get when run as root; otherwise it stops at once with the one line to run), then the npm
# packages when node_modules is missing. Sourced by scripts/test.sh; exits on failure.
packages=(cmake g++ make pkg-config libuv1-dev libgtest-dev libgmock-dev libbenchmark-dev
  libssl-dev ffmpeg clang libclang-rt-14-dev util-linux curl chromium)

missing=()
for package in "${packages[@]}"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q "install ok installed" || missing+=("$package")
done
if [ ${#missing[@]} -gt 0 ]; then
  if [ "$(id -u)" -ne 0 ]; then
    echo "vidora: the tests need Debian packages that are not installed. Run:" >&2
    echo "  sudo apt-get install -y ${missing[*]}" >&2
    exit 1
  fi
  echo "==== installing ${missing[*]}"
  apt-get update -qq &&
    DEBIAN_FRONTEND=noninteractive apt-get install -y -qq "${missing[@]}" >/dev/null || exit 1
fi

if [ ! -d node_modules/node-addon-api ] || [ ! -x node_modules/.bin/tsc ] || [ ! -d node_modules/playwright-core ]; then
  echo "==== installing the npm packages"
  npm ci || exit 1
fi
