# The Python package on a local Dask cluster: folders, chunked images, killed workers.
# Needs the package and qel from the normal build; Debian's python3-dask and
# python3-distributed are installed here when missing (as root).
python=/usr/bin/python3
"$python" -c "import dask.array, distributed" 2>/dev/null ||
  bash tests/install_packages.sh python3-dask python3-distributed
cmake -B "$prefix" >/dev/null
cmake --build "$prefix" -j2 --target qel qel_python
# The clusters the tests start are closed by their fixtures; the time limit
# bounds the stage if a worker hangs.
QEL_BUILD_DIR="$(cd "$prefix" && pwd)" timeout 600 "$python" -m pytest -q -p no:cacheprovider tests/cluster
