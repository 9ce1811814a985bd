"""The man page, the completion and --help name the same commands and options.

Usage: man_page_test.py VST_ADAPTER MAN_PAGE COMPLETION
"""
import re
import subprocess
import sys

OPTION = re.compile(r"--[a-z0-9][a-z0-9-]*")
# Documented ahead of their code: a command's words may be missing from --help until the
# command itself appears there.
PENDING = {"scan": {"scan", "--cache", "--jobs", "--timeout"},
           "validate": {"validate", "--checks", "--level", "--junit", "--timeout"}}


def help_words(binary):
    text = subprocess.run([binary, "--help"], capture_output=True, text=True, check=True).stdout
    block = text.split("Commands:\n")[1].split("\n\n")[0]
    return set(re.findall(r"^  (\S+)", block, re.M)) | set(OPTION.findall(text))


def man_words(path):
    text = re.sub(r"\\f.", "", open(path).read().replace("\\-", "-"))
    block = text.split(".SH COMMANDS\n")[1].split(".SH ")[0]
    return set(re.findall(r"^\.TP\n\.B (\S+)", block, re.M)) | set(OPTION.findall(text))


def completion_words(path):
    text = open(path).read()
    return set(re.search(r'commands="([^"]*)"', text)[1].split() + re.search(r'options="([^"]*)"', text)[1].split())


binary, man_page, completion = sys.argv[1:]
in_help, in_man = help_words(binary), man_words(man_page)
landed = set().union(*(words for command, words in PENDING.items() if command in in_help))
waiting = set().union(*PENDING.values()) - landed
faults = [f"{word}: in --help, not in the man page" for word in sorted(in_help - in_man)]
faults += [f"{word}: in the man page, not in --help" for word in sorted(in_man - in_help - waiting)]
faults += [f"{word}: in one of the man page and the completion only"
           for word in sorted(in_man ^ completion_words(completion))]
print("\n".join(faults) or f"{len(in_man)} words agree")
sys.exit(1 if faults else 0)
