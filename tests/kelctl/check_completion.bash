# bash check_completion.bash KELCTL SCRIPT: what the completion offers, beside
# what the program knows.
kelctl=$1
# shellcheck source=/dev/null
source "$2" || exit 1
failures=0

# offers EXPECTED WORD...: the last word is the one being completed.
offers() {
  local expected=$1 found
  shift
  COMP_WORDS=(kelctl "$@")
  COMP_CWORD=$#
  _kelctl_complete 2>/dev/null
  found=${COMPREPLY[*]}
  if [[ $found != "$expected" ]]; then
    printf 'kelctl %s: offers "%s", not "%s"\n' "$*" "$found" "$expected"
    failures=$((failures + 1))
  fi
}

commands=$("$kelctl" --help | sed -n '/^Commands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
offers "${commands//$'\n'/ } --help --version" ''
offers 'crc' c
offers '--version' --v
for command in $commands; do
  COMP_WORDS=(kelctl "$command" --)
  COMP_CWORD=2
  _kelctl_complete
  found=$(printf '%s\n' "${COMPREPLY[@]}" | sort)
  # Every command knows --version, and its own help is silent about it.
  known=$({ "$kelctl" "$command" --help | grep -o '^  *--[a-z]*' | tr -d ' '; echo --version; } |
    sort -u)
  if [[ $found != "$known" ]]; then
    printf '%s: the completion knows\n%s\nthe program\n%s\n' "$command" "$found" "$known"
    failures=$((failures + 1))
  fi
done

offers 'queue semaphore' ipc --only ''
offers 'semaphore' ipc --only s
offers 'queue semaphore' ipc --only =
offers 'queue' ipc --only = q
offers '' hexdump --offset ''
offers '' none --
offers '' trace ''

directory=$(mktemp -d) || exit 1
semaphore=/dev/shm/sem.kelctl-$$-x
trap 'rm -rf "$directory" "$semaphore"' EXIT
touch "$directory/one file" "$directory/other" "$semaphore"
offers "$directory/one file $directory/other" crc "$directory/o"
offers "$directory/other" hexdump --length 3 "$directory/ot"
offers "/kelctl-$$-x" ipc "/kelctl-$$-"
offers "kelctl-$$-x" ipc --drain "kelctl-$$-"

exit $((failures != 0))
