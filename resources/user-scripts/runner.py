# Runs one handler of a user's script: python3 runner.py SCRIPT. What comes and goes over descriptor 3
# is described in interpreter_user_scripts.h.
import fcntl
import os
import sys
import types

CHANNEL = 3
# Out of the way of the script's own descriptors.
FIRST_DESCRIPTOR = 16
# Not "__main__": what a script does for itself when it is run by hand stays undone.
MODULE = "__user_script__"


class Channel:
    def __init__(self):
        self._descriptor = fcntl.fcntl(CHANNEL, fcntl.F_DUPFD_CLOEXEC, FIRST_DESCRIPTOR)
        os.close(CHANNEL)
        self._identity = self._identify()
        self._process = os.getpid()

    def _identify(self):
        status = os.fstat(self._descriptor)
        return status.st_dev, status.st_ino

    def request(self):
        """The handler's name and its arguments."""
        with open(self._descriptor, "rb", closefd=False) as file:
            fields = iter(file.read().split(b"\0")[:-1])
        name = os.fsdecode(next(fields))
        arguments = []
        for kind in fields:
            if kind == b"list":
                arguments.append([os.fsdecode(next(fields)) for _ in range(int(next(fields)))])
            else:
                arguments.append(os.fsdecode(next(fields)))
        return name, arguments

    def report(self, fields):
        if os.getpid() != self._process:
            return
        # The script may have closed our descriptor and opened a file of its own in its place.
        if self._identify() != self._identity:
            raise OSError("the script has closed the descriptor of its result")
        left = b"".join(encoded(field) + b"\0" for field in fields)
        while left:
            left = left[os.write(self._descriptor, left):]


def encoded(text):
    try:
        return os.fsencode(text)
    except UnicodeEncodeError:
        return text.encode("utf-8", "backslashreplace")


def result_fields(result):
    def fits(value):
        return isinstance(value, str) and "\0" not in value

    if fits(result):
        return ["string", result]
    if isinstance(result, (list, tuple)) and all(map(fits, result)):
        return ["list", str(len(result)), *result]
    return ["nothing"]


def description(error):
    kind = type(error)
    name = kind.__qualname__
    if kind.__module__ not in ("builtins", MODULE):
        name = f"{kind.__module__}.{name}"
    try:
        text = str(error.msg if isinstance(error, SyntaxError) else error)
    except Exception:
        text = ""
    return (f"{name}: {text}" if text else name).replace("\0", "\\0")


def frames_of(error, script):
    """The traceback from the first frame inside the script on."""
    frames = error.__traceback__
    while frames is not None and frames.tb_frame.f_code.co_filename != script:
        frames = frames.tb_next
    return frames


def line_in(error, script):
    if isinstance(error, SyntaxError) and error.filename == script:
        return str(error.lineno or "")
    line = ""
    frames = frames_of(error, script)
    while frames is not None:
        if frames.tb_frame.f_code.co_filename == script:
            line = str(frames.tb_lineno)
        frames = frames.tb_next
    return line


def run(script, name, arguments):
    """The fields of the report."""
    module = types.ModuleType(MODULE)
    module.__file__ = script
    sys.modules[MODULE] = module
    try:
        with open(script, "rb") as file:
            source = file.read()
        exec(compile(source, script, "exec", dont_inherit=True), module.__dict__)
        handler = getattr(module, name, None)
        if not callable(handler):
            return ["missing"]
        result = handler(*arguments)
        if isinstance(result, types.CoroutineType):
            import asyncio

            result = asyncio.run(result)
        return ["done", *result_fields(result)]
    except SystemExit:
        raise
    except BaseException as error:
        import traceback

        traceback.print_exception(type(error), error, frames_of(error, script))
        return ["error", description(error), line_in(error, script)]


def main():
    script = sys.argv[1]
    channel = Channel()
    name, arguments = channel.request()
    sys.argv = [script]
    if getattr(sys.flags, "safe_path", False):
        sys.path.insert(0, os.path.dirname(script))
    else:
        sys.path[0] = os.path.dirname(script)
    # Each line at once, and any path can be printed.
    sys.stdout.reconfigure(line_buffering=True, errors="surrogateescape")
    report = run(script, name, arguments)
    channel.report(report)
    sys.exit(0 if report[0] == "done" else 1)


main()
