# Test share: test lines at most 35% of code lines (tests/test_share.sh says how they are counted).
bash tests/test_share.sh 35
