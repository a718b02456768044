"""What the tests ask of a running process."""


def caught_signals(pid):
    """The set of signals the process has handlers for, or None once it is gone."""
    try:
        with open("/proc/%d/status" % pid) as f:
            for line in f:
                if line.startswith("SigCgt:"):
                    mask = int(line.split()[1], 16)
                    return {s for s in range(1, 65) if mask & (1 << (s - 1))}
    except OSError:
        return None
    return set()
