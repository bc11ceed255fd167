# Completes the options of devlog and of `devlog write`.

_devlog() {
  local cur prev words cword
  _init_completion || return

  if [ "${words[1]}" = write ] && [ "$cword" -gt 1 ]; then
    case $prev in
      -t | --type) COMPREPLY=($(compgen -W "$(echo {0..15})" -- "$cur")); return ;;
    esac
    case $cur in
      -*) COMPREPLY=($(compgen -W '--event --help --type --version' -- "$cur")) ;;
    esac
    return
  fi

  case $prev in
    --ring) COMPREPLY=($(compgen -W 'log event both' -- "$cur")); return ;;
    -t | --type) COMPREPLY=($(compgen -W "$(echo {0..15})" -- "$cur")); return ;;
    -n | --lines | -e | --regex | --since | --until) return ;;
  esac
  case $cur in
    -*)
      COMPREPLY=($(compgen -W '--consume --follow --help --json --lines --regex --ring --since --stats --syslog
        --type --until --version' -- "$cur"))
      ;;
    *) [ "$cword" -ne 1 ] || COMPREPLY=($(compgen -W 'write' -- "$cur")) ;;
  esac
}

complete -F _devlog devlog
