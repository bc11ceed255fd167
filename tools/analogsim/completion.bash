# SPDX-License-Identifier: MIT
# Completes the options of analogsim, and after them the command as if it stood alone.

_analogsim() {
  local cur prev words cword
  _init_completion || return

  local index=1
  while [ "$index" -lt "$cword" ]; do
    case ${words[index]} in
      --state | --channels | --fail | --answer) index=$((index + 2)) ;;
      --) _command_offset $((index + 1)); return ;;
      -*) index=$((index + 1)) ;;
      *) _command_offset "$index"; return ;;
    esac
  done

  case $prev in
    --state) _filedir; return ;;
    --fail) COMPREPLY=($(compgen -W 'EBUSY EFAULT EINTR EINVAL EIO ENODEV ENOMEM ENOTTY ENXIO' -- "$cur")); return ;;
    --channels | --answer) return ;;
  esac
  case $cur in
    -*) COMPREPLY=($(compgen -W '--answer --channels --fail --help --state --trace --trace-bytes --version' -- "$cur")) ;;
    *) _command_offset "$cword" ;;
  esac
}

complete -F _analogsim analogsim
