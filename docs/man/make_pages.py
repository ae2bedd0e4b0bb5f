#!/usr/bin/env python3
"""Makes the manual pages and the completion for bash of pages.toml.
   usage: make_pages.py FOLDER VERSION
"""
import argparse
import os
import re
import runpy
import sys
import tomllib
from pathlib import Path

HERE = Path(__file__).resolve().parent
SOURCE = HERE.parent.parent
HEADINGS = {"use": "SYNOPSIS", "about": "DESCRIPTION", "exit": "EXIT STATUS"}
VALUE = re.compile(r"\b[A-Z][A-Z0-9]*\b")
FILES = {"FOLDER": "-d", "FILE": "-f", "PATCH": "-f", "IMAGE": "-f"}  # how bash completes a value
INTERFACES = "$(ls /sys/class/net)"


def roff(text: str) -> str:
    text = text.replace("\\", r"\e").replace("-", r"\-").replace("\t", " ")
    text = re.sub("`(.*?)`", r"\\fB\1\\fR", text)
    return re.sub(r"^([.'])", r"\\&\1", text, flags=re.M)


def roff_words(text: str) -> str:
    """A command line: values in italics, the rest as it is typed."""
    return re.sub(VALUE, lambda word: rf"\fI{word[0]}\fB", r"\fB" + roff(text)) + r"\fR"


def roff_paragraphs(text: str) -> str:
    return "\n.PP\n".join(roff(paragraph.strip("\n")) for paragraph in text.split("\n\n"))


def roff_table(rows: dict[str, str], values: dict[str, str], is_typed: bool) -> str:
    lines = []
    for what, meaning in rows.items():
        words = next((values[value] for value in VALUE.findall(what) if value in values), "")
        lines += [".TP", roff_words(what) if is_typed else rf"\fB{roff(what)}\fR",
                  roff(meaning + (": " + ", ".join(words.split()) if words else ""))]
    return "\n".join(lines)


def roff_see(names: list[str]) -> str:
    pages = [name for name in names if name.endswith(")")]
    lines = [f".BR {roff(name[:-3])} {name[-3:]}{',' if name != pages[-1] else ''}" for name in pages]
    documents = [rf"\fI/usr/share/doc/norv/{roff(name)}\fR" for name in names if name not in pages]
    return "\n".join(lines + ([".PP"] if documents and lines else []) + [",\n".join(documents)]).rstrip()


def page(name: str, row: dict, date: str, version: str) -> str:
    section, values = row.get("section", 8), row.get("values", {})
    synopsis = "\n.br\n".join(roff_words(f"{name} {use}".strip()) for use in row["use"])
    parts = [("NAME", rf"{roff(name)} \- {roff(row['line'])}"),
             ("SYNOPSIS", synopsis or rf"\fB{roff(name)}\fR, started by a web server"),
             ("DESCRIPTION", roff_paragraphs(row["about"].strip()))]
    for key, table in row.items():
        if isinstance(table, dict) and key != "values":
            parts.append((HEADINGS.get(key, key.upper()), roff_table(table, values, key in ("commands", "options"))))
    parts.append(("SEE ALSO", roff_see(row["see"])))
    head = f'.TH {roff(name.upper())} {section} {date} "norv {version}" "norv"\n.nh\n.ad l\n'
    return head + "".join(f".SH {title}\n{body}\n" for title, body in parts)


def words(row: dict, table: str) -> dict[str, str]:
    """The words of a table of commands or options that are typed, each with its value's name or nothing."""
    found = {}
    for what in row.get(table, {}):
        for one in what.split(", "):
            typed, _, rest = one.partition(" ")
            value = VALUE.match(rest)
            found[typed] = value[0] if value else ""
    return found


def completion(command: str, commands: dict[str, str], options: dict[str, str], values: dict[str, str],
               with_files: bool) -> str:
    function = "_norv_" + re.sub(r"\W", "_", command)
    cases = []
    for option, value in options.items():
        if value:
            how = FILES.get(value) or (f'-W "{INTERFACES}"' if value == "INTERFACE" else f"-W '{values.get(value, '')}'")
            cases.append(f"    {option}) mapfile -t COMPREPLY < <(compgen {how} -- \"$word\"); return ;;\n")
    otherwise = 'mapfile -t COMPREPLY < <(compgen -f -- "$word")' if with_files else ":"
    first = f"""    elif [[ $COMP_CWORD -eq 1 ]]; then
        mapfile -t COMPREPLY < <(compgen -W '{' '.join(commands)}' -- "$word")
""" if commands else ""
    case = "    case ${COMP_WORDS[COMP_CWORD - 1]} in\n" + "".join(cases) + "    esac\n" if cases else ""
    return f"""{function}()
{{
    local word=${{COMP_WORDS[COMP_CWORD]}}
{case}    if [[ $word == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W '{' '.join(options)}' -- "$word")
{first}    else
        {otherwise}
    fi
}}
complete -o filenames -F {function} {command}
"""


def lab_completion() -> str:
    """Of lab/vm, by the parser of its own arguments."""
    parser = runpy.run_path(str(SOURCE / "lab/vm"))["parser"]()
    verbs, options = {}, {}
    for action in parser._actions:
        if isinstance(action, argparse._SubParsersAction):
            verbs = action.choices
    for one in (parser, *verbs.values()):
        for action in one._actions:
            for option in action.option_strings:
                options[option] = "" if action.nargs == 0 else "FILE"
    return completion("lab/vm", dict.fromkeys(verbs, ""), options, {}, with_files=True)


def main() -> None:
    folder, version = Path(sys.argv[1]), sys.argv[2]
    pages = tomllib.loads((HERE / "pages.toml").read_text())
    date = pages.pop("date")
    told = []
    for sub in ("man1", "man8", "completions"):
        os.makedirs(folder / sub, exist_ok=True)
        for old in (folder / sub).iterdir():
            old.unlink()
    for name, row in pages.items():
        section = row.get("section", 8)
        (folder / f"man{section}" / f"{name}.{section}").write_text(page(name, row, date, version))
        commands, options, values = words(row, "commands"), words(row, "options"), row.get("values", {})
        if section == 1:
            with_files = any(value in FILES for value in VALUE.findall(" ".join([*row["use"], *row.get("commands", [])])))
            (folder / "completions" / name).write_text(
                completion(name, commands, options, values, with_files))
        listed = [word for word in (*commands, *options) if word not in row.get("hidden", [])]
        told.append(" ".join([f"{name}({section})", *listed, *sorted(set(" ".join(values.values()).split()))]))
    (folder / "completions" / "lab-vm").write_text(lab_completion())
    (folder / "words.txt").write_text("\n".join(told) + "\n")  # what each program's help must name, for the tests


if __name__ == "__main__":
    main()
