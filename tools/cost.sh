#!/usr/bin/env bash
# What the library costs a process, for both ABIs, from the builds in build/i386 and build/x86_64
# (tools/build.sh; --build runs it first for these two legs):
#   - the stripped library (a stripped copy; the build's own file is left alone): its file size and
#     where the bytes go: text (code and read-only data), data (written or relocated at load),
#     relocations, the dynamic symbol table with its hash table and versions, unwind tables, and
#     the rest (ELF and program headers, section names, page alignment);
#   - the relocations the loader applies, and the dynamic symbols;
#   - dlopen of the library and p4_pd_corvin_switch_init() in a fresh process: the median of
#     CV_COST_RUNS runs (default 21), by tools/cost_load.c built for each ABI;
#   - with --clean-build, the clean build of both ABIs (library, tests, benchmarks) as
#     tools/build.sh makes it, with CV_JOBS jobs (default 2), in fresh directories under /tmp.
# Goals: the i386 library under 3 MB (3,000,000 bytes) stripped, load and init under 5 ms, the
# clean build of both ABIs under 6 minutes on two cores.
#
#   tools/cost.sh [--build] [--clean-build]
#
# CV_BUILD_DIR moves the build directories as for tools/build.sh.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
dir=${CV_BUILD_DIR:-$root/build}
runs=${CV_COST_RUNS:-21}
legs=(i386 x86_64)
build=0
clean=0
for arg in "$@"; do
  case $arg in
    --build) build=1 ;;
    --clean-build) clean=1 ;;
    -h | --help) sed -n '2,18p' "$0" | sed 's/^# \{0,1\}//'; exit 0 ;;
    *) echo "unknown argument: $arg (see --help)" >&2; exit 2 ;;
  esac
done

if [ $build = 1 ]; then
  CV_LEGS="${legs[*]}" "$root/tools/build.sh" >/dev/null
fi

work=$(mktemp -d /tmp/cv_cost.XXXXXX)
trap 'rm -rf "$work"' EXIT

# Sections by kind, from `size -A` of the stripped file (decimal sizes). Sections that take no
# file space (.bss, .tbss) are counted apart, as memory only.
sections() {
  size -A "$1" | awk -v file_size="$(stat -c %s "$1")" '
    NR <= 2 || NF < 3 || $1 == "Total" { next }
    {
      name = $1; n = $2 + 0
      if (name == ".bss" || name == ".tbss") { bss += n; next }
      if (name ~ /^\.(text|init|fini|plt|plt\.got|plt\.sec|rodata.*|note.*|interp)$/) kind = "text"
      else if (name ~ /^\.(data|data\..*|got|got\.plt|init_array|fini_array|dynamic|tdata)$/) kind = "data"
      else if (name ~ /^\.(rel|rela|relr)\./) kind = "reloc"
      else if (name ~ /^\.(dynsym|dynstr|gnu\.hash|hash|gnu\.version.*)$/) kind = "dynsym"
      else if (name ~ /^\.(eh_frame|eh_frame_hdr|gcc_except_table)$/) kind = "unwind"
      else kind = "other"
      sum[kind] += n; all += n
    }
    END {
      printf "file %d\ntext %d\ndata %d\nreloc %d\ndynsym %d\nunwind %d\nother %d\nbss %d\n",
        file_size, sum["text"], sum["data"], sum["reloc"], sum["dynsym"], sum["unwind"],
        file_size - all + sum["other"], bss
    }'
}

# Relocation entries the loader applies: relative ones (packed or not) and symbolic ones.
relocations() {
  readelf -rW "$1" | awk '
    /^Relocation section .*\.relr\.dyn/ { relr = 1; next }
    /^Relocation section/ { relr = 0; next }
    relr && /^ *[0-9]+ offsets$/ { relative += $1; next }
    relr { next }
    /R_(386|X86_64)_RELATIVE/ { relative++; next }
    /R_(386|X86_64)_/ { symbolic++ }
    END { printf "relative %d\nsymbolic %d\n", relative, symbolic }'
}

median() { sort -n | awk '{ v[NR] = $1 } END { print (NR % 2) ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

declare -A val
for leg in "${legs[@]}"; do
  lib=$(readlink -f "$dir/$leg/src/libcv_bf_pd_qent_tofino2.so" || true)
  if [ ! -f "$lib" ]; then
    echo "no library in $dir/$leg/src: run tools/build.sh (CV_LEGS=\"${legs[*]}\"), or this script with --build" >&2
    exit 1
  fi
  stripped=$work/$leg.so
  strip --strip-all -o "$stripped" "$lib"
  while read -r k v; do val[$leg.$k]=$v; done < <(sections "$stripped"; relocations "$stripped")
  val[$leg.symbols]=$(readelf --dyn-syms -W "$stripped" | awk '$7 != "UND" && $5 == "GLOBAL"' | wc -l)

  # The load probe, for this ABI, against this build's platform libraries.
  platform=$dir/$leg/platform
  m=()
  [ "$leg" = i386 ] && m=(-m32)
  probe=$work/load_$leg
  cc "${m[@]}" -O2 -o "$probe" "$root/tools/cost_load.c" -L"$platform" -Wl,--no-as-needed -lcv_drvmodel -lcv_pdms -ldl
  LD_LIBRARY_PATH=$platform "$probe" "$stripped" >/dev/null  # page cache
  for _ in $(seq "$runs"); do LD_LIBRARY_PATH=$platform "$probe" "$stripped"; done >"$work/times_$leg"
  val[$leg.dlopen]=$(awk '{ print $1 }' "$work/times_$leg" | median)
  val[$leg.init]=$(awk '{ print $2 }' "$work/times_$leg" | median)
  val[$leg.load]=$(awk '{ print $1 + $2 }' "$work/times_$leg" | median)
done

row() {  # label, key, unit: bytes, count or us
  local label=$1 key=$2 unit=$3 out
  out=$(printf '%-42s' "$label")
  for leg in "${legs[@]}"; do
    local v=${val[$leg.$key]}
    case $unit in
      bytes) out+=$(awk -v v="$v" 'BEGIN { printf "%11d %6.2f MB", v, v / 1e6 }') ;;
      count) out+=$(printf '%11d %9s' "$v" "") ;;
      us) out+=$(awk -v v="$v" 'BEGIN { printf "%11.2f ms%6s", v / 1e3, "" }') ;;
    esac
  done
  echo "$out"
}

printf '%-42s%11s%10s%11s\n' "" "${legs[0]}" "" "${legs[1]}"
row "stripped library" file bytes
row "  text (.text, .rodata, .plt...)" text bytes
row "  data (.data, .data.rel.ro, .got...)" data bytes
row "  relocations (.rel[a].dyn, .relr.dyn)" reloc bytes
row "  dynamic symbols (+ .dynstr, hash, ver)" dynsym bytes
row "  unwind (.eh_frame, .eh_frame_hdr)" unwind bytes
row "  headers, names, alignment" other bytes
row "  .bss (memory only)" bss bytes
row "exported symbols" symbols count
row "relative relocations" relative count
row "symbolic relocations" symbolic count
row "dlopen, median of $runs" dlopen us
row "p4_pd_corvin_switch_init" init us
row "load and init" load us

if [ $clean = 1 ]; then
  # Wall time is what the goal counts; the processor time (user and system, every process of the
  # build) tells what the build needs of the machine, whatever else runs on it: the load average
  # before each build says how busy it was.
  jobs=${CV_JOBS:-2}
  total=0
  cpu_total=0
  TIMEFORMAT='%R %U %S'
  for leg in "${legs[@]}"; do
    fresh=$(mktemp -d /tmp/cv_cost_build.XXXXXX)
    load=$(cut -d' ' -f1 /proc/loadavg)
    if ! { time CV_BUILD_DIR=$fresh CV_LEGS=$leg CV_JOBS=$jobs "$root/tools/build.sh" >"$work/build_$leg.log" 2>&1; } \
        2>"$work/time_$leg"; then
      tail -20 "$work/build_$leg.log" >&2
      rm -rf "$fresh"
      echo "clean build of $leg failed" >&2
      exit 1
    fi
    rm -rf "$fresh"
    read -r real user sys <"$work/time_$leg"
    secs=$(awk -v r="$real" 'BEGIN { printf "%.0f", r }')
    cpu=$(awk -v u="$user" -v s="$sys" 'BEGIN { printf "%.0f", u + s }')
    total=$((total + secs))
    cpu_total=$((cpu_total + cpu))
    printf '%-42s%11s s  (%d:%02d), processor %d s, load before %s\n' "clean build, $leg, $jobs jobs" "$secs" \
      $((secs / 60)) $((secs % 60)) "$cpu" "$load"
  done
  printf '%-42s%11s s  (%d:%02d), processor %d s\n' "clean build, both ABIs" "$total" $((total / 60)) $((total % 60)) \
    "$cpu_total"
fi

echo
check() {  # what, measured, limit, unit
  awk -v what="$1" -v m="$2" -v lim="$3" -v unit="$4" \
    'BEGIN { printf "goal: %-44s %s (%s %s, limit %s)\n", what, (m < lim ? "met" : "MISSED"), m, unit, lim }'
}
check "i386 library stripped under 3 MB" "$(awk -v v="${val[i386.file]}" 'BEGIN { printf "%.2f", v / 1e6 }')" 3 MB
for leg in "${legs[@]}"; do
  check "load and init under 5 ms, $leg" "$(awk -v v="${val[$leg.load]}" 'BEGIN { printf "%.2f", v / 1e3 }')" 5 ms
done
if [ $clean = 1 ]; then
  check "clean build of both ABIs under 6 minutes" "$total" 360 s
fi
