# Completion of pantiq for bash; made by tools/manual.py.
_pantiq() {
  local cur=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} command=${COMP_WORDS[1]} words=
  COMPREPLY=()
  if ((COMP_CWORD == 1)); then
    COMPREPLY=($(compgen -W 'run convert check list inspect save dot bench play edit kernels --help --version' -- "$cur"))
    return
  fi
  case $previous in
    --output|--plugin|-o) compopt -o filenames 2>/dev/null; mapfile -t COMPREPLY < <(compgen -f -- "$cur"); return ;;
    --at|--audio|--effects|--frames|--from|--property|--seconds|--video) return ;;
  esac
  case $command in
    run) words='-h --help --frames --seconds --from --overwrite --at --realtime --json --quiet' ;;
    convert) words='-h --help --frames --seconds --from --overwrite --at --json --quiet' ;;
    check) words='-h --help --json' ;;
    list) words='-h --help --effects --json --codecs --devices --encoders' ;;
    inspect) words='-h --help --plugin --json' ;;
    save) words='-h --help -o --output --overwrite' ;;
    dot) words='-h --help' ;;
    bench) words='-h --help --frames --seconds --from --overwrite --json' ;;
    play) words='-h --help --frames --seconds --from --video --audio --mute --quiet' ;;
    edit) words='-h --help --property -o --output --custom --terminal --overwrite' ;;
    kernels) words='-h --help --json' ;;
  esac
  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$words" -- "$cur"))
    return
  fi
  case $command in
    run|convert|check|inspect|save|dot|bench) COMPREPLY=($(compgen -W "$(pantiq list 2>/dev/null | awk '/^  /{print $1}')" -- "$cur")) ;;
  esac
  case $command in
    run|convert|check|save|dot|bench|play|edit) compopt -o filenames 2>/dev/null; local files; mapfile -t files < <(compgen -f -- "$cur"); COMPREPLY+=("${files[@]}") ;;
  esac
}
complete -F _pantiq pantiq
