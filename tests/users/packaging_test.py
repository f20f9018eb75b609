"""Installs the library as its users do, and sends a mail from each place: a C and a C++ program
built against the unpacked Debian packages and against a prefix, through pkg-config and through
find_package; ovrm-send from a prefix and from the packages installed in a clean root. Packages of
either kind hold what an installation holds, hardened, and the units of a service manager are valid.

    packaging_test.py SOURCE_DIRECTORY WORKING_DIRECTORY
"""
import os
import pathlib
import re
import shutil
import subprocess
import sys
import unittest

from receiver import Receiver

SOURCE, WORK = pathlib.Path(sys.argv[1]), pathlib.Path(sys.argv[2]).resolve()
PACKAGES, RPMS, WHOLE, STAGE, PREFIX, ROOT = (
    WORK / name for name in ("packages", "rpms", "whole", "stage", "prefix", "root"))
COPY = WORK / "ovrmail"  # what the packages are built from, and in
BUILD = COPY / "build-deb"
# What the packages ask for, and what their scripts need.
BASE = ["libc6", "libgcc-s1", "libstdc++6", "dash", "coreutils", "findutils"]
DATA = "var/opt/Quorvin"
with open("/proc/self/uid_map", encoding="ascii") as uid_map:
    REAL_ROOT = int(uid_map.read().split()[2]) > 65536


def run(*command, **options):
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


def files_below(directory):
    return {str(f.relative_to(directory)) for f in directory.rglob("*")
            if f.is_symlink() or not f.is_dir()}


def make_clean_root():
    """The files of a few essential packages of this machine, in a root of their own."""
    asked = run("apt-cache", "depends", "--recurse", "--installed", "--important", *BASE)
    packages = sorted(set(re.findall(r"^([\w.+-]+)$", asked, re.M)))
    for name in ("bin", "lib", "lib64", "sbin"):
        (ROOT / "usr" / name).mkdir(parents=True)
        (ROOT / name).symlink_to("usr/" + name)
    for name in ("dev", "etc", "var/lib/dpkg/info", "var/lib/dpkg/updates", "var/lib/dpkg/triggers"):
        (ROOT / name).mkdir(parents=True, exist_ok=True)
    names = [f[1:] for f in run("dpkg", "-L", *packages).split("\n") if f.startswith("/") and
             os.path.lexists(f) and not os.path.isdir(f) and not f.startswith("/usr/share/")]
    run("bash", "-o", "pipefail", "-c",
        'tar -C / -c -T - | tar -C "$0" --keep-directory-symlink -x', ROOT, input="\n".join(names))
    (ROOT / "var/lib/dpkg/status").write_text(run("dpkg-query", "-s", *packages))
    (ROOT / "dev/null").touch()
    (ROOT / "etc/group").write_text("root:x:0:\nadm:x:4:\n")


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for place in (WHOLE, STAGE, PREFIX, ROOT):
            shutil.rmtree(place, ignore_errors=True)
        # As shipped, but without the debug information, which takes a quarter of the time.
        run(SOURCE / "packaging/build_packages.sh", PACKAGES, WORK,
            env=dict(os.environ, DEB_BUILD_OPTIONS="noautodbgsym", DEB_CXXFLAGS_STRIP="-g"))
        cls.debs = list(PACKAGES.glob("*.deb"))
        for package in cls.debs:
            run("dpkg-deb", "--extract", package, STAGE)
        run("cmake", "--install", BUILD, env=dict(os.environ, DESTDIR=str(WHOLE)))
        if shutil.which("rpmbuild"):
            run(COPY / "packaging/build_rpms.sh", RPMS, BUILD)
        run("cmake", BUILD, f"-DCMAKE_INSTALL_PREFIX={PREFIX}")
        run("cmake", "--build", BUILD)
        cls.words = run("cmake", "--install", BUILD)
        cls.library_dir = next(STAGE.glob("usr/lib/**/libovrmail.so")).parent

    def send(self, *program, attached=()):
        with Receiver() as server:
            run(*program, "127.0.0.1", "agent@a", "ops@b", *attached, server.port,
                env=dict(os.environ, LD_LIBRARY_PATH=str(self.library_dir),
                         PYTHONPATH=str(STAGE / "usr/lib/python3/dist-packages")))
            self.assertEqual(server.commands[1:3], ["MAIL FROM:<agent@a>", "RCPT TO:<ops@b>"])
            self.assertEqual(len(server.mails), 1)

    def send_by_tool(self, *program):
        with Receiver() as server:
            said = run(*program, "-S", "127.0.0.1", "-p", server.port, "-f", "agent@a",
                       "-t", "ops@b", "-s", "試験", "-b", "本文", "--verbose")
            self.assertIn("[0]", said)
            self.assertIn("-: 試験", said)
            self.assertEqual(len(server.mails), 1)

    def test_pkg_config(self):
        installs = {"packages": dict(PKG_CONFIG_SYSROOT_DIR=str(STAGE),
                                     PKG_CONFIG_LIBDIR=str(self.library_dir / "pkgconfig")),
                    "prefix": dict(PKG_CONFIG_LIBDIR=str(next(PREFIX.glob("lib*/**/pkgconfig"))))}
        example = STAGE / "usr/share/doc/ovrmail/examples/plain.c"
        for name, variables in installs.items():
            flags = run("pkg-config", "--cflags", "--libs", "ovrmail",
                        env=dict(os.environ, **variables)).split()
            for compiler, source in (("cc", example),
                                     ("c++", SOURCE / "tests/users/consumer/main.cpp")):
                program = WORK / f"{name}_{compiler}"
                run(compiler, "-Wall", "-Wextra", "-Werror", source, "-o", program, *flags)
                self.send(program)

    def test_find_package(self):
        build = WORK / "consumer"
        shutil.rmtree(build, ignore_errors=True)
        run("cmake", "-S", SOURCE / "tests/users/consumer", "-B", build,
            f"-DCMAKE_PREFIX_PATH={STAGE}/usr",
            f"-DEXAMPLE={STAGE}/usr/share/doc/ovrmail/examples/plain.c")
        run("cmake", "--build", build)
        self.send(build / "consumer_c")
        self.send(build / "consumer_cpp")

    def test_python_module(self):
        self.send("/usr/bin/python3", "-B", STAGE / "usr/share/doc/ovrmail/examples/plain.py",
                  attached=[__file__])

    def test_a_prefix_of_ones_own_works_at_once(self):
        self.send_by_tool(PREFIX / "bin/ovrm-send")
        self.assertRegex(self.words, "loader does not look into " + str(PREFIX))

    def test_packages_hold_what_an_installation_holds(self):
        whole = files_below(WHOLE)
        manual = SOURCE / "docs/man"
        for page in manual.rglob("*.[1-9]"):
            place = page.parent.relative_to(manual) / f"man{page.suffix[1:]}" / page.name
            self.assertIn(f"usr/share/man/{place}.gz", whole)
        for program in (WHOLE / "usr/bin").iterdir():
            self.assertIn(f"usr/share/man/man1/{program.name}.1.gz", whole)
        self.assertEqual({h.name for h in (WHOLE / "usr/include/ovrmail").iterdir()},
                         {h.name for h in (SOURCE / "include").iterdir()})
        library = next(self.library_dir.glob("libovrmail.so.1.*"))
        for function in re.findall(r" T (\w+)", run("nm", "-D", library)):
            self.assertIn(f"usr/share/man/man3/{function}.3ovrmail.gz", whole)
        for document in WHOLE.glob("usr/share/doc/ovrmail/**/*.md"):
            for target in re.findall(r"\]\(([^)#:]+)\)", document.read_text()):
                self.assertTrue((document.parent / target).exists(), f"{document.name}: {target}")
        own = re.compile(r"usr/share/(licenses|lintian|doc/(lib|ovrmail-|python3-))")
        unpacked = [f for f in files_below(STAGE) if not own.match(f)]
        self.assertEqual(set(unpacked), {f for f in whole if not own.match(f)})
        self.assertEqual(len(unpacked), len([line for package in self.debs for line in run(
            "dpkg-deb", "--contents", package).splitlines()
            if line[0] != "d" and not own.match(line.split()[5][2:])]), "a file in two packages")

    def test_what_is_packaged_is_hardened_and_needs_libc_alone(self):
        library = next(self.library_dir.glob("libovrmail.so.1.*"))
        run(SOURCE / "tests/hardening_test.sh", library, *(STAGE / "usr/bin").iterdir())
        run(SOURCE / "tests/exports_test.sh", library, "libc.so.6")
        for program in (STAGE / "usr/bin").iterdir():
            self.assertNotIn("RUNPATH", run("readelf", "-d", program))

    def test_one_version(self):
        [version] = re.findall(r"^project\(ovrmail VERSION ([\d.]+)",
                               (SOURCE / "CMakeLists.txt").read_text(), re.M)
        self.assertEqual(run("dpkg-deb", "--field", self.debs[0], "Version").strip(), version)
        released = re.findall(r"^## (\d\S+)", (SOURCE / "CHANGELOG.md").read_text(), re.M)
        self.assertEqual(released[0], version)

    @unittest.skipUnless(shutil.which("lintian"), "needs lintian")
    def test_lintian(self):
        said = subprocess.run(["lintian", "--allow-root", "-EiI", "--pedantic",
                               *PACKAGES.glob("*.changes")], capture_output=True, text=True)
        # What a compiler makes of a text may need an override at one time and not at another.
        self.assertEqual(re.findall(r"^[EWIPX]: (?!.* unused-override).*",
                                    said.stdout + said.stderr, re.M), [])
        self.assertEqual(said.returncode, 0, said.stderr)

    def test_packages_in_a_clean_root(self):
        """The directories keep what the operator sets; a boot deletes left-over working files,
        and purging what is the product's own."""
        make_clean_root()
        packages = [p for p in self.debs if p.name.startswith(("libovrmail1_", "ovrmail-tools_"))]
        run("dpkg", f"--root={ROOT}", "--log=/dev/null", "-i", *packages)
        data = ROOT / DATA
        modes = {f.name: oct(f.stat().st_mode & 0o7777) for f in data.iterdir()}
        self.assertEqual(modes, {"tmp": "0o700", "tmp2": "0o700", "log": "0o750"})
        self.assertEqual((data / "log").stat().st_gid, 4 if REAL_ROOT else 0)
        (data / "log").chmod(0o3770)
        run("chroot", ROOT, "/usr/libexec/libovrmail1/make-directories")
        self.assertEqual((data / "log").stat().st_mode & 0o7777, 0o3770)
        self.send_by_tool("chroot", ROOT, "/usr/bin/ovrm-send")
        run("chroot", ROOT, "/usr/bin/ovrm-send", "--check-config")

        product = ["tmp/EMT7-8", "tmp/EST7--8", "tmp2/acert7-8.trc", "tmp2/trc0123abcd",
                   "tmp2/agets7-8.trc", "log/rmsmtp7.log", "log/rmsmtp7.log3"]
        others = ["tmp/mine", "log/rmsmtp7.log.gz", "log/other.log"]
        for name in product + others:
            (data / name).touch()
        if shutil.which("systemd-tmpfiles"):
            run("systemd-tmpfiles", f"--root={ROOT}", "--boot", "--remove",
                ROOT / "usr/lib/tmpfiles.d/libovrmail1.conf")
            left = [name for name in product if (data / name).exists()]
            self.assertEqual(left, [n for n in product if not re.match("tmp/|tmp2/trc", n)])
        [script] = (ROOT / "var/lib/dpkg/info").glob("libovrmail1*.postrm")
        run("chroot", ROOT, f"/{script.relative_to(ROOT)}", "purge",
            env=dict(os.environ, DPKG_MAINTSCRIPT_PACKAGE_REFCOUNT="2"))
        self.assertTrue((data / product[-1]).exists(), "purged while another architecture uses it")
        run("dpkg", f"--root={ROOT}", "--log=/dev/null", "-P", "ovrmail-tools", "libovrmail1")
        self.assertEqual(files_below(data), set(others))
        self.assertFalse((data / "tmp2").exists())

    @unittest.skipUnless(shutil.which("rpmbuild"), "needs rpmbuild")
    def test_rpms(self):
        each_file = "[%{FILEMODES:perms} %{FILENAMES}\\n]"
        rows = run("rpm", "-qp", "--queryformat", each_file, *RPMS.glob("*.rpm"))
        files = [row.split()[1][1:] for row in rows.splitlines() if row[0] != "d"]
        self.assertEqual(sorted(files), sorted(files_below(WHOLE)))
        library = next(RPMS.glob("libovrmail1-*.rpm"))
        self.assertEqual(set(re.findall(r"^lib[^(]*", run("rpm", "-qpR", library), re.M)),
                         {"libc.so.6"})
        self.assertIn("make-directories", run("rpm", "-qp", "--scripts", library))
        for package in RPMS.glob("ovrmail-tools-*.rpm"):
            self.assertIn("libovrmail1 = ", run("rpm", "-qpR", package))

    @unittest.skipUnless(REAL_ROOT and shutil.which("systemd-analyze"), "needs root and systemd")
    def test_files_of_the_service_manager(self):
        examples, root = STAGE / "usr/share/doc/ovrmail/examples/service", WORK / "service"
        shutil.rmtree(root, ignore_errors=True)
        (root / "etc").mkdir(parents=True)
        run("systemd-sysusers", f"--root={root}", examples / "ovrmail-sysusers.conf")
        run("systemd-tmpfiles", f"--root={root}", "--create", examples / "ovrmail-tmpfiles.conf")
        group = re.search(r"^ovrmail:x:(\d+):agent$", (root / "etc/group").read_text(), re.M)
        for name in ("tmp", "tmp2", "log"):
            status = (root / DATA / name).stat()
            self.assertEqual(status.st_mode & 0o7777, 0o3770)
            self.assertEqual(status.st_gid, int(group.group(1)))
        unit = (examples / "agent.service").read_text()
        (root / "agent.service").write_text(
            re.sub("^ExecStart=.*", f"ExecStart={STAGE}/usr/bin/ovrm-send", unit, flags=re.M))
        run("systemd-analyze", "verify", root / "agent.service")


if __name__ == "__main__":
    if os.geteuid() != 0 or not shutil.which("dh") or not shutil.which("pkg-config"):
        print("packaging_test: needs root (or a user namespace), debhelper and pkg-config; skipped")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1])
