#!/usr/bin/env bash
# Fails when a source is not formatted as .clang-format says; names each such file.
set -euo pipefail
cd "$(dirname "$0")/.."
mapfile -t files < <(git ls-files '*.h' '*.cpp')
clang-format --dry-run -Werror "${files[@]}"
echo "${#files[@]} files are formatted"
