#!/bin/bash
# Runs clang-tidy (.clang-tidy says which checks) and cppcheck over src; both must have nothing to report.
# About five minutes on two cores.
set -euo pipefail
cd "$(dirname "$0")/../.."
. cmake/packages.sh
need_packages clang-tidy-14 cppcheck

status=0
echo "== clang-tidy over $(find src -name '*.cpp' | wc -l) files"
find src -name '*.cpp' -print0 | xargs -0 -P "$(nproc)" -I{} clang-tidy-14 --quiet {} -- -std=c++17 \
    -fno-exceptions -fno-rtti -Iinclude -Isrc 2> /dev/null || status=1
echo "== cppcheck"
cppcheck --quiet --error-exitcode=1 -j "$(nproc)" --enable=warning,performance,portability --std=c++17 \
    --suppressions-list=tests/checkers/cppcheck.txt -Iinclude -Isrc src || status=1
[ $status -ne 0 ] || echo "nothing to report"
exit $status
