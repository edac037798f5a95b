"""How recorderctl fails: one line when it cannot do what it is asked, a hint when it is misused."""


def refused(state, *words, given=""):
    """The line without the program's name in front."""
    return state.refusal("recorderctl", *words, given=given)


def misused(state, *words):
    """What is wrong with the command line; nothing was done."""
    done = state.run("recorderctl", *words)
    assert done.returncode > 1 and done.stdout == "", done
    said, hint = done.stderr.splitlines()
    assert hint == "Run with --help for more information."
    return said
