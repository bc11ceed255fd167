# SPDX-License-Identifier: MIT
# Completes the options of devdoctor.

_devdoctor() {
  local cur prev words cword
  _init_completion || return

  case $prev in
    --home) _filedir -d; return ;;
    --file) _filedir; return ;;
    -p | --process) _pids; return ;;
  esac
  COMPREPLY=($(compgen -W '--file --help --home --json --process --prometheus --repair --version' -- "$cur"))
}

complete -F _devdoctor devdoctor
