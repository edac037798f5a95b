"""How recorderctl fails: one line when it cannot do what it is asked, one with a hint when it is
misused."""


def refused(state, *words, given=""):
    """The line without the program's name in front."""
    return state.refusal("recorderctl", *words, given=given)


def misused(state, *words):
    """What is wrong with the command line; nothing was done."""
    done = state.run("recorderctl", *words)
    assert done.returncode > 1 and done.stdout == "", done
    said, = done.stderr.splitlines()
    assert said.startswith("recorderctl: ") and said.endswith("; see --help"), said
    return said.removeprefix("recorderctl: ").removesuffix("; see --help")
