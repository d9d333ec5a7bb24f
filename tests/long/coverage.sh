#!/bin/bash
# Runs the tests in a build with gcov's counters and prints how much of src/ they reach, and the lines that they do not;
# build/coverage/coverage.txt has the branches too. Fails below 95 % of lines or 90 % of branches.
#
# Counted is what the tests reach through the library, not through its plain form, which is built from the same sources.
# Left out are branches that g++ adds for exceptions and those that it marks as unreachable.
set -euo pipefail
cd "$(dirname "$0")/../.."
. cmake/packages.sh
need_packages cmake make g++ gcovr python3 python3-numpy pkg-config \
    libgtest-dev libcli11-dev nlohmann-json3-dev libsndfile1-dev libsoxr-dev

cmake --preset coverage > /dev/null
find build/coverage -name '*.gcda' -delete # of objects that are built anew now
cmake --build --preset coverage --parallel "$(nproc)" > /dev/null
find build/coverage -name '*.gcda' -delete # of programs that ran to list their tests
ctest --preset coverage --parallel "$(nproc)" | tail -4
report=build/coverage/coverage
gcovr --root . --filter src/ --exclude-throw-branches --exclude-unreachable-branches build/coverage/src \
    --json "$report.json" --print-summary --fail-under-line 95 --fail-under-branch 90 || failed=1
python3 - "$report.json" > "$report.txt" << 'END'
import json, sys
for file in json.load(open(sys.argv[1]))["files"]:
    source = open(file["file"]).read().split("\n")
    for line in file["lines"]:
        taken = [branch["count"] != 0 for branch in line["branches"]]
        if not line["gcovr/noncode"] and not (line["count"] and all(taken)):
            what = f"{taken.count(True)}/{len(taken)} branches" if line["count"] else "not reached"
            print(f"{file['file']}:{line['line_number']}: {what}: {source[line['line_number'] - 1].strip()}")
END
grep 'not reached' "$report.txt" || true
exit "${failed:-0}"
