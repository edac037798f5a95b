"""The page for administrators as something to carry out: the commands of its code blocks."""
import re

from places import SOURCE

PAGE = SOURCE / "docs/operations.md"


def chapter(heading):
    """What stands below a heading, up to the next one that is not below it."""
    text = PAGE.read_text()
    (found,) = re.finditer(rf"^(#+) {re.escape(heading)}\n", text, re.MULTILINE)
    end = re.compile(rf"^#{{1,{len(found[1])}}} ", re.MULTILINE).search(text, found.end())
    return text[found.end():end.start() if end else None]


def commands(heading, words):
    """Those of the chapter's one block of commands that has these words, one text each."""
    blocks = re.findall(r"^```sh\n(.*?)^```", chapter(heading), re.MULTILINE | re.DOTALL)
    (block,) = [block for block in blocks if words in block]
    lines = block.replace("\\\n", " ").splitlines()
    return [line for line in lines if line and not line.startswith("#")]


def follow(machine, heading, words, answers=None):
    """Carries out such a block; `answers` has what is typed at commands that begin with its keys.

    :return: what the commands said
    """
    said = ""
    for command in commands(heading, words):
        typed = [text for start, text in (answers or {}).items() if command.startswith(start)]
        said += machine.run(command, "".join(typed))
    return said
