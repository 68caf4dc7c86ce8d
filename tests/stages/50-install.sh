# Installed use: a prefix install, the example host through find_package and pkg-config, the Debian package checked by lintian.
# Everything happens in a temporary folder and in "$prefix-install"; the
# machine's own packages are never changed (apt-get only adds missing tools).
repo=$PWD
build="$prefix-install"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Tools this stage needs: dpkg-shlibdeps and file (for cpack's dependency
# list), pkg-config and lintian.
missing=()
command -v dpkg-shlibdeps >/dev/null || missing+=(dpkg-dev)
command -v file >/dev/null || missing+=(file)
command -v pkg-config >/dev/null || missing+=(pkgconf)
command -v lintian >/dev/null || missing+=(lintian)
bash tests/install_packages.sh "${missing[@]}"

cmake -B "$build" -DQEL_BUILD_TESTS=OFF -DQEL_BUILD_BENCH=OFF >/dev/null
cmake --build "$build" -j2
cmake --install "$build" --prefix "$work/prefix" >/dev/null

# Everything below runs from a folder that has nothing to do with the build.
mkdir "$work/elsewhere"
cd "$work/elsewhere"
installed="$work/prefix"
"$installed/bin/qel" sample chart.ppm
"$installed/bin/qel" chart.ppm blur by-qel.ppm

step "example host with find_package"
cmake -S "$repo/examples/host" -B "$work/example" -DCMAKE_PREFIX_PATH="$installed" >/dev/null
cmake --build "$work/example" >/dev/null
"$work/example/qel-blur-ppm" chart.ppm by-cmake-host.ppm
cmp by-qel.ppm by-cmake-host.ppm

step "example host with one pkg-config line"
export PKG_CONFIG_PATH="$installed/lib/pkgconfig"
[[ "$(pkg-config --variable=moduledir qelimaging)" == "$installed/lib/qelimaging" ]]
g++ -std=c++17 -O2 "$repo/examples/host/blur_ppm.cpp" -o "$work/blur-pc" $(pkg-config --cflags --libs qelimaging)
"$work/blur-pc" chart.ppm by-pc-host.ppm
cmp by-qel.ppm by-pc-host.ppm

# A copy of the prefix elsewhere still works: qel finds the module relative to itself.
cp -a "$installed" "$work/moved"
"$work/moved/bin/qel" chart.ppm blur moved.ppm
cmp by-qel.ppm moved.ppm

step "Debian package"
(cd "$repo/$build" && rm -f qelimaging_*.deb && cpack -G DEB >/dev/null)
deb=$(ls "$repo/$build"/qelimaging_*_amd64.deb)
dpkg-deb --field "$deb" Package Version Depends
# apt can resolve its dependencies here (a simulation: nothing is installed).
apt-get -s install "$deb" >/dev/null
dpkg -x "$deb" "$work/root"
# Files written while installing name /usr, not cpack's staging folder.
grep -q '"/usr/lib/qelimaging"' "$work/root/usr/include/qel/install_dirs.h"
grep -q '^prefix=/usr$' "$work/root/usr/lib/pkgconfig/qelimaging.pc"
"$work/root/usr/bin/qel" sample blur from-deb.png
[[ "$(head -c 8 from-deb.png | od -An -tx1 | tr -d ' \n')" == 89504e470d0a1a0a ]]
"$work/root/usr/bin/qel" chart.ppm blur from-deb.ppm
cmp by-qel.ppm from-deb.ppm

step "lintian"
lintian --fail-on error --tag-display-limit 0 "$deb"
