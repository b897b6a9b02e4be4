# Sourced by the scripts: `quiet COMMAND...` runs COMMAND with its output held
# back, and shows that output only when the command fails.
quiet() {
  local out
  if ! out=$("$@" 2>&1); then
    printf '%s\n' "$out" >&2
    echo "$(basename "$0"): failed: $*" >&2
    return 1
  fi
}
