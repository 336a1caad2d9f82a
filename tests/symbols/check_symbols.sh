#!/bin/sh
# Holds the dynamic symbols of a shared object against a list, one name a line, and shows the difference.
#   check_symbols.sh exported  <shared object> <list>   all symbols that it exports
#   check_symbols.sh undefined <shared object> <list>   all symbols that it needs, but for those of the C and C++
#                                                       libraries, of cJSON and TinyXML-2, and of the compiler
set -eu
export LC_ALL=C

kind=$1
object=$2
list=$3

symbols() {
    case $kind in
        exported) nm -D --defined-only "$object" | awk '{ print $3 }' ;;
        undefined)
            nm -D --undefined-only "$object" | awk '{ print $2 }' |
                grep -Ev '@(GLIBC|GLIBCXX|CXXABI|GCC)_|^cJSON_|^_ZN?K?[A-Za-z0-9]*8tinyxml2|^(__gmon_start__|_ITM_(de)?registerTMCloneTable)$' || true
            ;;
        *)
            echo "unknown kind '$kind'" >&2
            return 2
            ;;
    esac
}

found=$(mktemp)
wanted=$(mktemp)
trap 'rm -f "$found" "$wanted"' EXIT
symbols | sort >"$found"
sort "$list" >"$wanted"
if ! diff "$wanted" "$found"; then
    echo "$object: the $kind symbols ('>') differ from $list ('<')" >&2
    exit 1
fi
