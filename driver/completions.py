"""The completions of quen-io for three shells, from the table of commands.

The first word completes to a command. The name of a command's operand selects what it completes to:
a FOLDER, a FILE, or an ENTRY and its arguments, which may be paths.
"""

MADE_BY = "# Made by driver/manual.py."


def takes(command):
    """FOLDER, FILE, ENTRY or nothing, and whether arguments follow it."""
    operands = command["operands"]
    return operands[0]["name"] if operands else "", len(operands) > 1


def names(options):
    return [name for option in options for name in option["names"]]


# bash


def bash(program, commands, entries):
    yield from (MADE_BY, "", "_quen_io() {")
    yield "  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} word"
    yield "  local -i before=0  # words behind the command that are no options"
    yield '  for word in "${COMP_WORDS[@]:2:COMP_CWORD - 2}"; do'
    yield "    [[ $word == -* ]] || before+=1"
    yield "  done"
    yield "  COMPREPLY=()"
    yield "  if ((COMP_CWORD == 1)); then"
    yield from _bash_words([command["name"] for command in commands] + names(program["options"]))
    yield from ("    return", "  fi", "  case ${COMP_WORDS[1]} in")
    for command in commands:
        yield f"    {command['name']})"
        yield from (f"    {line}" for line in _bash_command(command, entries))
        yield "      ;;"
    yield from ("  esac", "}", "", "complete -F _quen_io quen-io")


def _bash_command(command, entries):
    words = _bash_words(names(command["options"]))
    yield from ("  if [[ $current == -* ]]; then", *words)
    for option in command["options"]:
        if option["value"]:
            test = " || ".join(f"$previous == {name}" for name in names([option]))
            found = _bash_paths("-f") if option["value"] == "FILE" else ["    :"]
            yield from (f"  elif [[ {test} ]]; then", *found)
    kind, has_arguments = takes(command)
    if kind == "ENTRY":
        words = _bash_words(entry["short"] for entry in entries)
        yield from ("  elif ((before == 0)); then" if has_arguments else "  else", *words)
    if kind == "FILE" or has_arguments:
        yield from ("  else", *_bash_paths("-f"))
    if kind == "FOLDER":
        yield from ("  else", *_bash_paths("-d"))
    yield "  fi"


def _bash_words(words):
    return [f"""    mapfile -t COMPREPLY < <(compgen -W "{' '.join(words)}" -- "$current")"""]


def _bash_paths(action):
    return ["    compopt -o filenames", f'    mapfile -t COMPREPLY < <(compgen {action} -- "$current")']


# zsh

ZSH_ACTIONS = {"FOLDER": "_directories", "FILE": "_files", "ENTRY": "_quen_io_entries"}


def zsh(program, commands, entries):
    yield from ("#compdef quen-io", MADE_BY, "")
    yield from _zsh_described(
        "entries", "entry point", [(entry["short"], entry["summary"]) for entry in entries]
    )
    yield from _zsh_described(
        "commands", "command", [(command["name"], command["summary"]) for command in commands]
    )
    yield from (
        "# A path may stand behind a form, as in folder:/usr.",
        "_quen_io_arguments() {",
        "  compset -P '[a-z]##:'",
        "  _files",
        "}",
        "",
    )
    yield from ("_quen_io() {", "  local curcontext=$curcontext state line")
    yield _zsh_arguments(
        "  _arguments -C", [*_zsh_options(program), "'1: :_quen_io_commands'", "'*:: :->words'"]
    )
    yield from ("  [[ $state == words ]] || return", "  case $words[1] in")
    for command in commands:
        yield f"    {command['name']})"
        yield _zsh_arguments("      _arguments", [*_zsh_options(command), *_zsh_positionals(command)])
        yield "      ;;"
    yield from ("  esac", "}", "", '_quen_io "$@"')


def _zsh_described(name, title, rows):
    yield from (f"_quen_io_{name}() {{", "  local -a rows=(")
    for term, summary in rows:
        yield f"    {_zsh_quoted(f'{term}:{summary}')}"
    yield from ("  )", f"  _describe {_zsh_quoted(title)} rows", "}", "")


def _zsh_quoted(text):
    return "'" + text.replace("'", "'\\''") + "'"


def _zsh_options(command):
    for option in command["options"]:
        both = names([option])
        value = f":{option['value']}:{ZSH_ACTIONS.get(option['value'], '')}" if option["value"] else ""
        about = _zsh_quoted(f"[{option['summary']}]{value}")
        for name in both:
            equals = "=" if option["value"] and name.startswith("--") else ""
            yield f"'({' '.join(both)})'{name}{equals}{about}"


def _zsh_positionals(command):
    kind, has_arguments = takes(command)
    if kind:
        number = "*" if command["operands"][0]["many"] else "1"
        yield f"'{number}:{kind}:{ZSH_ACTIONS[kind]}'"
    if has_arguments:
        yield "'*:argument:_quen_io_arguments'"


def _zsh_arguments(call, descriptions):
    indent = " " * (len(call) - len(call.lstrip()) + 2)
    return f" \\\n{indent}".join([call, *descriptions])


# fish


def fish(program, commands, entries):
    rows = [f"        {entry['short']} {_fish_quoted(entry['summary'])}" for entry in entries]
    yield from (MADE_BY, "", "function __quen_io_entries")
    yield " \\\n".join([r"    printf '%s\t%s\n'", *rows])
    yield from ("end", "", "complete -c quen-io -f")
    for option in program["options"]:
        yield _fish_option("__fish_use_subcommand", option)
    for command in commands:
        yield _fish_rule(
            "__fish_use_subcommand", f"-a {command['name']} -d {_fish_quoted(command['summary'])}"
        )
    for command in commands:
        yield ""
        used = f"__fish_seen_subcommand_from {command['name']}"
        for option in command["options"]:
            yield _fish_option(used, option)
        yield from _fish_positionals(command, used)


def _fish_quoted(text):
    return "'" + text.replace("\\", "\\\\").replace("'", "\\'") + "'"


def _fish_rule(condition, what):
    return f"complete -c quen-io -n {_fish_quoted(condition)} {what}"


def _fish_option(condition, option):
    spellings = "".join(
        f"-l {name[2:]} " if name.startswith("--") else f"-s {name[1:]} " for name in option["names"]
    )
    value = {"": "", "FILE": "-r -F "}.get(option["value"], "-x ")
    return _fish_rule(condition, f"{spellings}{value}-d {_fish_quoted(option['summary'])}")


def _fish_positionals(command, used):
    kind, has_arguments = takes(command)
    words = "(count (string match -v -- '-*' (commandline -opc)))"
    if kind == "ENTRY":
        condition = f"{used}; and test {words} -eq 2" if has_arguments else used
        yield _fish_rule(condition, "-a '(__quen_io_entries)'")
    if has_arguments:
        yield _fish_rule(f"{used}; and test {words} -gt 2", "-F")
    if kind == "FILE":
        yield _fish_rule(used, "-F")
    if kind == "FOLDER":
        yield _fish_rule(used, "-a '(__fish_complete_directories (commandline -ct))'")
