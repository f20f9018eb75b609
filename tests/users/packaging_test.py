"""Installs the library as its users do, and sends a mail from each place: a C and a C++ program
built against a DESTDIR install through pkg-config and through find_package, and ovrm-send from the
Debian packages in a clean root.

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
BUILD, PACKAGES, STAGE, PREFIX, ROOT = (
    WORK / name for name in ("build", "packages", "stage", "prefix", "root"))
# What the packages ask for, and what their scripts need.
BASE = ["libc6", "libgcc-s1", "libstdc++6", "dash", "coreutils"]


def run(*command, **options):
    done = subprocess.run([str(c) for c in command], capture_output=True, text=True, **options)
    if done.returncode != 0:
        raise AssertionError(f"{command} ended with {done.returncode}\n{done.stdout}{done.stderr}")
    return done.stdout


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


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        for place in (STAGE, PREFIX, ROOT):
            shutil.rmtree(place, ignore_errors=True)
        run(SOURCE / "packaging/build_packages.sh", PACKAGES, BUILD)
        run("cmake", "--install", BUILD, env=dict(os.environ, DESTDIR=str(STAGE)))
        run("cmake", "--install", BUILD, "--prefix", PREFIX)
        cls.library_dir = next(STAGE.glob("usr/lib/**/libovrmail.so")).parent

    def send(self, *program):
        with Receiver() as server:
            run(*program, "127.0.0.1", "agent@a", "ops@b", server.port,
                env=dict(os.environ, LD_LIBRARY_PATH=str(self.library_dir)))
            self.assertEqual(server.commands[1:3], ["MAIL FROM:<agent@a>", "RCPT TO:<ops@b>"])
            self.assertEqual(len(server.mails), 1)

    def test_pkg_config(self):
        relative = self.library_dir.relative_to(STAGE / "usr") / "pkgconfig"
        installs = {"destdir": dict(PKG_CONFIG_SYSROOT_DIR=str(STAGE),
                                    PKG_CONFIG_LIBDIR=str(STAGE / "usr" / relative)),
                    "prefix": dict(PKG_CONFIG_LIBDIR=str(PREFIX / relative))}
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

    def test_every_page_and_header_is_installed(self):
        pages = {p.name for p in STAGE.glob("usr/share/man/man*/*")}
        self.assertEqual(pages, {p.name + ".gz" for p in (SOURCE / "docs/man").iterdir()})
        for program in (STAGE / "usr/bin").iterdir():
            self.assertIn(program.name + ".1.gz", pages)
        headers = {h.name for h in (STAGE / "usr/include/ovrmail").iterdir()}
        self.assertEqual(headers, {h.name for h in (SOURCE / "include").iterdir()})

    def test_the_library_needs_libc_alone(self):
        package = next(PACKAGES.glob("libovrmail1_*.deb"))
        self.assertRegex(run("dpkg-deb", "-f", package, "Depends"), r"^libc6 \(>= [\d.]+\)\n$")

    @unittest.skipUnless(shutil.which("lintian"), "needs lintian")
    def test_lintian(self):
        said = subprocess.run(["lintian", "--allow-root", *PACKAGES.glob("*.deb")],
                              capture_output=True, text=True)
        self.assertNotIn("\nE: ", "\n" + said.stdout + said.stderr)

    def test_packages_in_a_clean_root(self):
        make_clean_root()
        packages = [p for p in PACKAGES.glob("*.deb") if "-dev_" not in p.name]
        run("dpkg", f"--root={ROOT}", "--log=/dev/null", "-i", *packages)
        with Receiver() as server:
            said = run("chroot", ROOT, "/usr/bin/ovrm-send", "-S", "127.0.0.1", "-p", server.port,
                       "-f", "agent@a", "-t", "ops@b", "-s", "試験", "-b", "本文", "--verbose")
            self.assertIn("[0]", said)
            self.assertIn("-: 試験", said)
            self.assertEqual(len(server.mails), 1)
        run("chroot", ROOT, "/usr/bin/ovrm-send", "--check-config")
        run("dpkg", f"--root={ROOT}", "--log=/dev/null", "-P", "ovrmail-tools", "libovrmail1")
        self.assertFalse((ROOT / "var/opt/Quorvin").exists())


if __name__ == "__main__":
    if os.geteuid() != 0 or not shutil.which("dpkg-shlibdeps") or not shutil.which("pkg-config"):
        print("packaging_test: needs root (or a user namespace), dpkg-dev and pkg-config; skipped")
        sys.exit(77)
    unittest.main(argv=sys.argv[:1])
