# shellcheck shell=sh
# For the sessions beside it: a line is typed, then it runs, and what follows on
# the screen is what it wrote.
typed() {
  printf '\033[32m$\033[0m '
  rest=$1
  while [ -n "$rest" ]; do
    # A few letters at a time: each is a frame of the picture.
    printf '%.5s' "$rest"
    rest=${rest#"$(printf '%.5s' "$rest")"}
    sleep 0.1
  done
  sleep 0.4
  printf '\n'
  eval "$1"
  sleep "${2:-1}"
}

remark() {
  printf '\033[36m# %s\033[0m\n' "$1"
  sleep 1
}

# A file as a slow network would deliver it, once or "for-ever".
slowly() {
  while :; do
    at=0
    while [ $((at * 8192)) -lt "$(wc -c <"$1")" ]; do
      dd if="$1" bs=8192 skip=$at count=1 2>/dev/null
      sleep 0.08
      at=$((at + 1))
    done
    [ "${2:-}" = for-ever ] || return 0
  done
}
