#!/usr/bin/env bash
# Copies the skeleton of a filter into the current folder under a new name: class, files and program.
#
#   rename.sh Darken     makes ./Darken with the class TDarken and the program darken
set -euo pipefail
new=${1:-}
if ! [[ $new =~ ^[A-Z][A-Za-z0-9]*$ ]] || [ $# -ne 1 ]; then
  echo "rename: expected one name of letters and digits that begins with a capital: rename.sh Darken" >&2
  exit 2
fi
if [ -e "$new" ]; then
  echo "rename: '$new' is there already" >&2
  exit 2
fi
from=$(cd "$(dirname "$0")" && pwd)
mkdir "$new"
for file in CMakeLists.txt main.cpp Skeleton.cpp Skeleton.h Skeleton_test.cpp; do
  sed "s/Skeleton/$new/g; s/skeleton/${new,,}/g; / A filter to start from: rename/s/ A filter to start.*//" "$from/$file" >"$new/${file/Skeleton/$new}"
done
echo "$new: class T$new, program ${new,,}"
