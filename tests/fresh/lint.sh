#!/bin/sh
# tests/fresh/lint.sh - test: the packages in build/package by lintian, desktop entry and metainfo by their validators.
# SPDX-License-Identifier: MIT
set -eu
sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends lintian desktop-file-utils \
    appstream >/dev/null
lintian --fail-on error,warning build/package/packages/*.deb
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
dpkg-deb -x build/package/packages/tavu-utility_*.deb "$scratch"
desktop-file-validate "$scratch"/usr/share/applications/*.desktop
appstreamcli validate --no-net "$scratch"/usr/share/metainfo/*.xml
