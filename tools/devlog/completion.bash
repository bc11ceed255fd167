# SPDX-License-Identifier: MIT
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
    --color) COMPREPLY=($(compgen -W 'auto always never' -- "$cur")); return ;;
    --cursor | --names) _filedir; return ;;
    -n | --lines | -e | --regex | -p | --process | --since | --until) return ;;
  esac
  case $cur in
    -*)
      COMPREPLY=($(compgen -W '--color --consume --cursor --follow --help --ignore-case --invert-match --json
        --lines --names --process --regex --ring --since --stats --syslog --type --until --version' -- "$cur"))
      ;;
    *) [ "$cword" -ne 1 ] || COMPREPLY=($(compgen -W 'write' -- "$cur")) ;;
  esac
}

complete -F _devlog devlog
