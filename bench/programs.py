"""What the benchmarks of whole programs share: their arguments, our build, and which peers there are."""
import argparse
import functools
import pathlib
import shutil
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
OURS = "tervano"


def arguments(description: str) -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=description,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("filters", nargs="*", metavar="FILTER")
    parser.add_argument("--repetitions", type=int, default=1)
    parser.add_argument("--at", type=pathlib.Path, default=ROOT)
    parser.add_argument("--build", type=pathlib.Path, default=ROOT / "build-release")
    return parser.parse_args()


def build(folder: pathlib.Path, program: str, *more: str) -> str:
    """Builds one of the programs below libexec, with further targets, and answers its path."""
    folder = folder.resolve()
    if not (folder / "build.ninja").exists():
        subprocess.run(["cmake", "--preset", "release", "-B", str(folder)], cwd=ROOT, check=True,
                       stdout=subprocess.DEVNULL)
    subprocess.run(["ninja", "--quiet", "-C", str(folder), program, *more], check=True,
                   stdout=subprocess.DEVNULL)
    return str(folder / "libexec" / "tervano" / program)


def is_wanted(case: str, filters: list) -> bool:
    return not filters or any(text in case for text in filters)


@functools.lru_cache(maxsize=None)
def is_installed(role: str) -> bool:
    """Whether the program of a role, "peer PROGRAM ...", is there; says so once when it is not."""
    if role == OURS or shutil.which(role.split()[1].rstrip(",")) is not None:
        return True
    print(f"{role}: not installed; tools/setup bench installs it", file=sys.stderr)
    return False


def main(run) -> None:
    try:
        sys.exit(run())
    except subprocess.CalledProcessError as error:
        sys.exit(f"{sys.argv[0]}: {error.cmd[0]} failed with status {error.returncode}")
