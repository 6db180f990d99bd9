#!/usr/bin/env python3
"""A bare Debian root in which a shell script runs as on a machine that has nothing installed.

    tests/package/bareroot.py [--cache FOLDER] [--bind OUTSIDE:INSIDE]... SCRIPT

Runs SCRIPT by the root's sh (with -eu) in a fresh root; its output and its exit status are the command's. INSIDE is a
folder of the root at which OUTSIDE is found, read-only. Packages can be installed there (apt-get update has been run),
and pseudo terminals and /sys work, so that boards can be simulated. From Python: BareRoot(cache).run(script, binds).

debootstrap makes the root once, of the release that this machine runs, and keeps it in the cache folder (default:
build/bareroot), as are the packages that scripts download. A run sees a copy-on-write layer in memory, which is gone
with it. Nothing stays mounted or running, however the run ends: it has mount and process namespaces of its own.

Needs root and debootstrap. Raises (as a command: ends with status 1) and says what is missing.
"""

import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

# Ends with this process, and all that it started with it.
ISOLATED = ["setpriv", "--pdeathsig", "KILL",
            "unshare", "--mount", "--pid", "--fork", "--kill-child", "--propagation", "private"]

# $1 the kept root, $2 an empty folder, $3 the cache of packages, then OUTSIDE:INSIDE...; the script is standard input.
ENTER = r"""
set -eu
base=$1 work=$2 archives=$3
shift 3
mount -t tmpfs -o mode=755 bareroot "$work"
mkdir "$work/upper" "$work/work" "$work/root"
mount -t overlay bareroot -o "lowerdir=$base,upperdir=$work/upper,workdir=$work/work" "$work/root"
root=$work/root
mount -t proc proc "$root/proc"
mount --rbind /sys "$root/sys"
mount --rbind /dev "$root/dev"
mkdir -p "$root/var/cache/apt/archives"
mount --bind "$archives" "$root/var/cache/apt/archives"
for bind; do
    mkdir -p "$root${bind#*:}"
    mount --bind "${bind%%:*}" "$root${bind#*:}"
    mount -o remount,bind,ro "$root${bind#*:}"
done
cp /etc/resolv.conf /etc/hosts "$root/etc/"
cat > "$root/script"
exec env -i PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C.UTF-8 \
    DEBIAN_FRONTEND=noninteractive ${http_proxy:+http_proxy="$http_proxy"} \
    chroot "$root" sh -eu -c 'cd /root; apt-get -q update; . /script' </dev/null
"""


class BareRootError(Exception):
    pass


def refusal():
    """Why this machine does not let this user make a bare root; empty when it does."""
    if os.geteuid() != 0:
        return "a bare root needs root"
    script = "mount -t tmpfs bareroot /mnt && mknod /mnt/null c 1 3 && chroot / true"
    trial = subprocess.run([*ISOLATED, "sh", "-c", script], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, text=True)
    return f"this system refuses namespaces ({trial.stdout.strip()})" if trial.returncode else ""


def leave_out_if_refused():
    """Ends a test that needs a bare root where there can be none, with the status by which ctest lists it as not run."""
    reason = refusal()
    if reason:
        print(f"Left out: {pathlib.Path(sys.argv[0]).stem}: {reason}")
        sys.exit(77)


def system_sources():
    """The files that tell apt of this machine where its distribution comes from; other parties' are left out."""
    lists = pathlib.Path("/etc/apt")
    files = [lists / "sources.list"] + [lists / f"sources.list.d/{name}.sources" for name in ("debian", "ubuntu")]
    return [file for file in files if file.exists() and mirror_in(file.read_text())]


def mirror_in(text):
    found = re.search(r"^(?:URIs:|deb(?: \[.*?\])?) *(https?://\S+)", text, re.MULTILINE)
    return found and found[1]


def codename():
    for line in pathlib.Path("/etc/os-release").read_text().splitlines():
        if line.startswith("VERSION_CODENAME="):
            return line.split("=")[1].strip('"')
    raise BareRootError("/etc/os-release names no release; a bare root can be made on Debian and Ubuntu only")


class BareRoot:
    def __init__(self, cache):
        self.cache = pathlib.Path(cache).resolve()
        if os.geteuid() != 0:
            raise BareRootError("a bare root needs root: run the test as root (sudo), or leave it out by "
                                "ctest --label-exclude bareroot")
        if not shutil.which("debootstrap"):
            raise BareRootError("debootstrap is missing: install the package debootstrap (scripts/test does)")
        self.base = self.cache / codename()
        self.archives = self.cache / "archives"
        if not self.base.exists():
            self.make_base()

    def make_base(self):
        sources = system_sources()
        if not sources:
            raise BareRootError("no file in /etc/apt tells where this system's packages come from (http or https)")
        unfinished = self.cache / "unfinished"
        shutil.rmtree(unfinished, ignore_errors=True)
        self.archives.mkdir(parents=True, exist_ok=True)
        mirror = mirror_in(sources[0].read_text())
        result = subprocess.run([*ISOLATED, "debootstrap", "--variant=minbase", codename(), unfinished, mirror],
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if result.returncode != 0:
            raise BareRootError(f"debootstrap could not make a bare root from {mirror}; is the network there?\n"
                                + result.stdout[-2000:])
        (unfinished / "etc/apt/sources.list").unlink(missing_ok=True)
        for file in sources:
            place = unfinished / file.relative_to("/")
            place.parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(file, place)
        (unfinished / "etc/apt/apt.conf.d/no-translations").write_text('Acquire::Languages "none";\n')
        for package in (unfinished / "var/cache/apt/archives").glob("*.deb"):
            package.unlink()
        unfinished.rename(self.base)

    def run(self, script, binds=(), **more):
        """Runs the text `script` with `binds`, a list of (outside, inside); a finished process is returned."""
        with tempfile.TemporaryDirectory(prefix="run-", dir=self.cache) as work:
            return subprocess.run([*ISOLATED, "sh", "-c", ENTER, "bareroot", self.base, work, self.archives,
                                   *[f"{outside}:{inside}" for outside, inside in binds]],
                                  input=script, text=True, **more)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--cache", default="build/bareroot")
    parser.add_argument("--bind", action="append", default=[], metavar="OUTSIDE:INSIDE")
    parser.add_argument("script", metavar="SCRIPT")
    arguments = parser.parse_args()
    binds = [tuple(bind.split(":", 1)) for bind in arguments.bind]
    try:
        script = pathlib.Path(arguments.script).read_text()
        sys.exit(BareRoot(arguments.cache).run(script, binds).returncode)
    except (BareRootError, OSError) as error:
        sys.exit(f"bareroot: {error}")


if __name__ == "__main__":
    main()
