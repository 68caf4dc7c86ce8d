# The normal build and every test.
cmake -B "$prefix" && cmake --build "$prefix" -j2 && ctest --test-dir "$prefix" --output-on-failure
