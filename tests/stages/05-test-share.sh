# Test share: prints test lines against code lines (tests/test_share.sh says how they are counted)
# and fails when the tests are more than 35% of the code.
bash tests/test_share.sh
