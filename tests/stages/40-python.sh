# The Python package: built in the normal build folder, its pytest suite run with Debian's Python.
cmake -B "$prefix" && cmake --build "$prefix" -j2 --target qel_python
QEL_BUILD_DIR="$(cd "$prefix" && pwd)" /usr/bin/python3 -m pytest -q -p no:cacheprovider tests/python
