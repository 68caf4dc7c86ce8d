# The Python package on a local Dask cluster: folders, chunked images, killed workers.
# Needs the package and qel from the normal build; Debian's python3-dask and
# python3-distributed are installed here when missing (as root).
python=/usr/bin/python3
if ! "$python" -c "import dask.array, distributed" 2>/dev/null; then
  if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null; then
    apt_get() { DEBIAN_FRONTEND=noninteractive apt-get -o DPkg::Lock::Timeout=600 "$@"; }
    apt_get install -y --no-install-recommends python3-dask python3-distributed ||
      { apt_get update && apt_get install -y --no-install-recommends python3-dask python3-distributed; }
  else
    echo "45-dask: install Debian's python3-dask and python3-distributed" >&2
    exit 1
  fi
fi
cmake -B "$prefix" >/dev/null
cmake --build "$prefix" -j2 --target qel qel_python
# The clusters the tests start are closed by their fixtures; the time limit
# bounds the stage if a worker hangs.
QEL_BUILD_DIR="$(cd "$prefix" && pwd)" timeout 600 "$python" -m pytest -q -p no:cacheprovider tests/cluster
