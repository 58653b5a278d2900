#!/usr/bin/env bash
# The checks that need no build: formatting, include arrows, file headers.
set -euo pipefail
cd "$(dirname "$0")/.."
git ls-files -z '*.h' '*.cpp' | xargs -0 -r clang-format --dry-run --Werror
python3 tools/check_layers.py
