# What ./dev check does; sourced by it.

# How many lines of code there are in these folders, without blank lines and comments.
code_lines() {
  cloc --quiet --csv --include-lang='C++,C/C++ Header' "$@" |
    awk -F, '$2 ~ /^C\+\+|^C\/C\+\+/ { lines += $5 } END { print lines }'
}

# Tests are code that has to be read and changed as well.
check_share_of_tests() {
  local most=36 tests product
  tests=$(code_lines tests fuzz)
  product=$(code_lines Player qel Time logging platform apps)
  echo "$tests lines of tests for $product lines of code: $((100 * tests / product)) %"
  ((100 * tests <= most * product)) || { echo "more than $most %" >&2; exit 1; }
}

# docs/reliability.md says in the last columns of its tables which test, or which program of tests/,
# shows what.
check_named_tests() {
  local known name
  known=$(ctest --test-dir build/dev -N | sed -n 's/^ *Test *#[0-9]*: \([^ ]*\).*/\1/p')
  awk -F'|' '/^\|/ { print $(NF - 1) }' docs/reliability.md | grep -o '`[^`]*`' | tr -d '`' |
    while read -r name; do
      [[ -e $name ]] || grep -qE "(^|[./])${name#Faults/}\$" <<<"$known" ||
        { echo "docs/reliability.md: there is no test $name" >&2; exit 1; }
    done
}

# The player's tests and the documents' commands, as a user who is refused files that root is not.
# The build may lie where such a user cannot go.
test_as_ordinary_user() {
  ((EUID == 0)) || return 0  # all else has run as one
  local copy status=0
  copy=$(mktemp -d)
  cp -r ./*.md .ci dev Player apps benchmarks cmake docs examples fuzz logging platform qel tests Time \
    "$copy"
  (cd build/dev && cp --parents tests/player/player-test apps/moravel-play/moravel-play \
    $(find . -name '*.so*') "$copy")
  cp "$clip" "$copy/clip.avi"
  chmod -R a+rX "$copy"
  (cd / && HOME=$copy setpriv --reuid=nobody --regid=nogroup --clear-groups sh -e -c '
    "$0/tests/player/player-test" --gtest_brief
    "$0/cmake/check-docs.py" "$0/apps/moravel-play/moravel-play" "$0/clip.avi"' "$copy") || status=$?
  rm -r "$copy"
  return "$status"
}

# All that is installed. Unity files hold eight sources each, so that headers are read once for all of
# them. Warnings are the compiler's that builds it: another one's are none of these checks.
tidy() {
  local unities='"file": "[^"]*/\(Player\|platform\|apps\)/[^"]*Unity/[^"]*"'
  grep -o "$unities" build/dev/compile_commands.json | cut -d'"' -f4 |
    xargs -P "$jobs" -n 1 clang-tidy-14 --quiet --extra-arg=-Wno-error -p build/dev \
      2>build/tidy.log || { cat build/tidy.log >&2; return 1; }
}

check() {
  # The sanitizers of this compiler cannot cope with the wide address layout of newer kernels.
  if [[ -z ${PLAIN_LAYOUT:-} ]] && setarch -R true 2>/dev/null; then
    PLAIN_LAYOUT=yes exec setarch -R "$root/dev" check
  fi
  need "${for_check[@]}"
  need_nginx
  cd "$root"
  say "format"
  git -c safe.directory='*' ls-files -z '*.h' '*.cpp' | xargs -0 clang-format-14 --dry-run --Werror
  say "reference of the public headers"
  mkdir -p build
  doxygen docs/Doxyfile
  say "clang-tidy"
  build dev
  tidy
  say "share of the tests"
  check_share_of_tests
  export ASAN_OPTIONS=detect_leaks=1:halt_on_error=1:detect_stack_use_after_return=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
  # A player that is told to stop at once leaves its threads where they are.
  export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:report_thread_leaks=0:suppressions=$root/cmake/tsan.supp
  for sanitizer in asan tsan; do
    build "$sanitizer"
    run_tests "$sanitizer"
  done
  build dev
  say "tests that the documents name"
  check_named_tests
  say "the documents' commands"
  make_clip dev
  cmake/check-docs.py build/dev/apps/moravel-play/moravel-play "$clip"
  say "the player's tests and the documents' commands as an ordinary user"
  test_as_ordinary_user
  say "the page in a browser"
  tests/view/view_test.py build/dev/apps/moravel-play/moravel-play
  fuzz 5
  say "packages, and hosts that are built with them"
  package
  cmake/check-install.sh build/packages "$clip"
  say "benchmarks, as briefly as can be"
  bench --smoke
  say "all checks passed"
}
