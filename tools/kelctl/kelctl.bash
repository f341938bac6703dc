# Completion of kelctl's command line for bash: source this file, or install it
# as /usr/share/bash-completion/completions/kelctl.

_kelctl_complete() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command=${COMP_WORDS[1]} words=

  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    mapfile -t COMPREPLY < <(
      compgen -W 'ipc shm trace crc hexdump --help --version' -- "$current")
    return
  fi

  # bash makes words of their own of "--only=queue" and its "=".
  if [[ $current == = ]]; then
    current=
  elif [[ $previous == = ]]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
  fi
  case $previous in
    --only)
      mapfile -t COMPREPLY < <(compgen -W 'queue semaphore' -- "$current")
      return
      ;;
    --bytes | --offset | --length)
      return
      ;;
  esac

  if [[ $current == -* ]]; then
    case $command in
      ipc) words='--drain --remove --only --yes' ;;
      shm) words='--bytes --remove --yes' ;;
      hexdump) words='--offset --length' ;;
      trace | crc) ;;
      *) return ;;
    esac
    mapfile -t COMPREPLY < <(compgen -W "$words --json --help --version" -- "$current")
    return
  fi

  case $command in
    ipc) _kelctl_names "$current" ;;
    crc | hexdump)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      ;;
  esac
}

# Queues, where they are mounted, and semaphores: one name often has both.
_kelctl_names() {
  local path name
  local -A seen=()
  for path in /dev/mqueue/* /dev/shm/sem.*; do
    [[ -e $path ]] || continue
    name=/${path##*/}
    [[ $path == /dev/shm/* ]] && name=/${name#/sem.}
    # Without the slash, too, as kelctl takes it.
    [[ $1 == /* || -z $1 ]] || name=${name#/}
    if [[ $name == "$1"* && -z ${seen[$name]-} ]]; then
      seen[$name]=1
      COMPREPLY+=("$(printf '%q' "$name")")
    fi
  done
}

complete -F _kelctl_complete kelctl
