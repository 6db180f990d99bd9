"""Makes a bare root: a folder with a minimal Debian. A shell script in it runs as on a machine with nothing installed.

The program debootstrap makes the bare root once, with the release that this machine runs. The cache folder keeps the
bare root and the packages that scripts download. All other changes of a run go to memory, and disappear after the run.
A run has its own mount and process namespaces, so nothing stays mounted or running afterwards.

Needs the user root and the program debootstrap; BareRootError says what is missing.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

# Command line that isolates the command after it. That command and its child processes end when this process ends.
ISOLATED = ["setpriv", "--pdeathsig", "KILL",
            "unshare", "--mount", "--pid", "--fork", "--kill-child", "--propagation", "private"]

# Reads a script from standard input, and runs it in a copy of the bare root. Arguments: $1 the bare root, $2 an empty
# folder, $3 the cache of packages, then OUTSIDE:INSIDE... for the folders to show in the root.
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
    """Returns the reason why this user cannot make a bare root on this machine; empty if the user can."""
    if os.geteuid() != 0:
        return "a bare root needs root"
    script = "mount -t tmpfs bareroot /mnt && mknod /mnt/null c 1 3 && chroot / true"
    trial = subprocess.run([*ISOLATED, "sh", "-c", script], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                           stderr=subprocess.STDOUT, text=True)
    return f"this system refuses namespaces ({trial.stdout.strip()})" if trial.returncode else ""


def leave_out_if_refused():
    """If a bare root is not possible, ends the test with status 77, which ctest lists as not run."""
    reason = refusal()
    if reason:
        print(f"Left out: {pathlib.Path(sys.argv[0]).stem}: {reason}")
        sys.exit(77)


def system_sources():
    """Returns apt's source files of this machine's distribution, without the files of other sources."""
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
    raise BareRootError("/etc/os-release names no release; make a bare root on Debian or Ubuntu")


class BareRoot:
    def __init__(self, cache):
        self.cache = pathlib.Path(cache).resolve()
        if os.geteuid() != 0:
            raise BareRootError("a bare root needs root: run the test as root (sudo), or leave it out with "
                                "ctest --label-exclude bareroot")
        if not shutil.which("debootstrap"):
            raise BareRootError("debootstrap is missing: install the package debootstrap, or run scripts/test")
        self.base = self.cache / codename()
        self.archives = self.cache / "archives"
        if not self.base.exists():
            self.make_base()

    def make_base(self):
        sources = system_sources()
        if not sources:
            raise BareRootError("no file in /etc/apt names the http or https source of this system's packages")
        unfinished = self.cache / "unfinished"
        shutil.rmtree(unfinished, ignore_errors=True)
        self.archives.mkdir(parents=True, exist_ok=True)
        mirror = mirror_in(sources[0].read_text())
        result = subprocess.run([*ISOLATED, "debootstrap", "--variant=minbase", codename(), unfinished, mirror],
                                stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        if result.returncode != 0:
            raise BareRootError(f"debootstrap could not make a bare root from {mirror}; check the network\n"
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
        """Runs apt-get update and then the text `script` with sh -eu, both in the bare root. For each (outside, inside)
        in `binds` the folder `outside` appears read-only at `inside` in the bare root. Returns the finished process."""
        with tempfile.TemporaryDirectory(prefix="run-", dir=self.cache) as work:
            return subprocess.run([*ISOLATED, "sh", "-c", ENTER, "bareroot", self.base, work, self.archives,
                                   *[f"{outside}:{inside}" for outside, inside in binds]],
                                  input=script, text=True, **more)
