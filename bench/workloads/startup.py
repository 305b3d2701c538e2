# startup: an empty script; the time is process start to exit.
