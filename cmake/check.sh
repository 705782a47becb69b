# What ./dev check does; sourced by it.

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
  say "layering: the library and the interfaces see nothing of the platform and the programs"
  if grep -rnE '#include "(platform|qelCore|elements|host|storage-server|apps|tests)/' \
    Player qel Time logging; then
    exit 1
  fi
  export ASAN_OPTIONS=detect_leaks=1:halt_on_error=1:detect_stack_use_after_return=1
  export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
  # A player that is told to stop at once leaves its threads where they are.
  export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1:report_thread_leaks=0
  for sanitizer in asan tsan; do
    build "$sanitizer"
    run_tests "$sanitizer"
  done
  say "install and embedding"
  build dev
  make_clip
  tests/consumer/check.sh build/dev "$clip"
  say "benchmarks, as briefly as can be"
  bench --smoke
  say "all checks passed"
}
