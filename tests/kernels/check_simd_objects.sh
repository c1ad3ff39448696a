#!/bin/sh
# check_simd_objects.sh NM OBJDUMP "object;object;...": the objects that are built for newer processors must hold no
# weak symbol (the linker might hand such code to older ones) and no fused multiply-add outside fused_allowed.txt.
nm=$1
objdump=$2
objects=$(echo "$3" | tr ';' ' ')
allowed=$(dirname "$0")/fused_allowed.txt
[ -n "$objects" ] || { echo "no objects built for newer processors here"; exit 77; }
bad=0
for object in $objects; do
  [ -f "$object" ] || { echo "missing: $object"; bad=1; continue; }
  weak=$("$nm" -C "$object" | grep -E ' [WVvwu] ' | grep -vE '__(asan|ubsan|tsan|sanitizer|odr_asan)')
  if [ -n "$weak" ]; then
    echo "weak symbols in $object:"
    echo "$weak"
    bad=1
  fi
  fused=$("$objdump" -dC --no-show-raw-insn "$object" | awk '
    /^[0-9a-f]+ </ { name = $0; sub(/^[0-9a-f]+ </, "", name); sub(/>:$/, "", name) }
    /vfn?m(add|sub)[0-9]/ || /vfmaddsub|vfmsubadd/ { print name }' | sort -u | grep -vEf "$allowed")
  if [ -n "$fused" ]; then
    echo "fused multiply-adds in $object, in functions that $(basename "$allowed") does not name:"
    echo "$fused"
    bad=1
  fi
done
exit $bad
