"""Holds what is told about the library to what it is: manual pages, headers, result codes, export
list, the options of ovrm-send, and the program in the README.

    man_pages_test.py SOURCE_DIRECTORY OVRM_SEND C_COMPILER
"""
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

SOURCE, TOOL, COMPILER = pathlib.Path(sys.argv[1]), sys.argv[2], sys.argv[3]
MANUAL = SOURCE / "docs/man"
PAGES = {str(page.relative_to(MANUAL)): page.read_text() for page in MANUAL.rglob("*.[1-9]")}
C_PAGES = {name: page for name, page in PAGES.items() if name.endswith(".3") and "\n.In " in page}
HEADERS = {h.name: re.sub(r"/\*.*?\*/", "", h.read_text(), flags=re.S)
           for h in (SOURCE / "include").glob("*.h")}


def flat(text):
    return re.sub(r"\s*([*,;()\[\]])\s*", r"\1", " ".join(text.split()))


def header_declarations(text):
    found = re.findall(r"^(?:extern )?MAIL_API\s+(?:MAIL_CHECKED\s+)?([^;{]+);", text, re.M)
    return {flat(d.replace("MAIL_NOEXCEPT", "")) for d in found}


def page_declarations(page):
    """The SYNOPSIS of a page in mdoc, as C declarations by header."""
    synopsis = page.split(".Sh SYNOPSIS\n")[1].split("\n.Sh ")[0]
    result, header, arguments, kind = {}, None, [], ""
    for line in synopsis.split("\n"):
        macro, _, rest = line.partition(" ")
        rest = re.sub(r'^"(.*)"$', r"\1", rest)
        if macro == ".In":
            header = result.setdefault(rest, set())
        elif macro == ".Vt":
            header.add(flat(rest.replace("extern ", "").rstrip(" ;")))
        elif macro == ".Ft":
            kind = rest
        elif macro == ".Fn":
            header.add(flat("{} {}({})".format(kind, *rest.split(" "))))
        elif macro == ".Fo":
            name, arguments = rest, []
        elif macro == ".Fa":
            arguments.append(rest)
        elif macro == ".Fc":
            header.add(flat(f"{kind} {name}({','.join(arguments)})"))
    return result


def cpp_declarations(text):
    """The public declarations of C++ text, without attributes, bodies and comments."""
    text = re.sub(r"//.*|\[\[\w+\]\]|\bnoexcept\b|\binline\b", "", text.partition("namespace detail")[0])
    text = re.sub(r"private:.*?\n};|\{ return [^}]*\}|^#.*", ";", text, flags=re.S | re.M)
    parts = (flat(re.sub(r"\w+:(?!:)", "", part)).rstrip(" =") for part in re.split(r"[;{}]", text))
    return {part for part in parts if re.search(r"[a-z]", part)}


def codes_of_enum(path, name):
    text = re.sub(r"//.*|/\*.*?\*/", "", (SOURCE / path).read_text())
    body = re.search(r"enum " + name + r"[^{]*\{(.*?)\}", text, re.S).group(1)
    return {int(n) for n in re.findall(r"=\s*(-?\d+)", body)}


def codes_of_page(page):
    returns = page.split(".Sh RETURN VALUES\n")[1].split("\n.Sh ")[0]
    return {int(n) for n in re.findall(r"^\.It (?:Dv \w+ Pq )?\\?(-?\d+)$", returns, re.M)}


class Pages(unittest.TestCase):
    def test_every_declaration_is_on_a_page_as_it_is_in_its_header(self):
        documented = {}
        for page in C_PAGES.values():
            documented.update(page_declarations(page))
        for header, text in HEADERS.items():
            declared = header_declarations(text)
            with self.subTest(header=header):
                self.assertEqual(declared, documented.get(header, set()))

    def test_every_argument_is_named_in_its_comment(self):
        for path in (SOURCE / "include").glob("*.h"):
            comment = ""
            for said, name, arguments in re.findall(
                    r"/\*(.*?)\*/|MAIL_API[^;]*?(\w+)\(([^;]*)\) MAIL_NOEXCEPT;",
                    path.read_text(), re.S):
                comment = said or comment
                named = set(re.findall(r"\w+", comment.partition(" - ")[2]))
                wanted = set(re.findall(r"(\w+)(?:\[\d+\])?(?:,|$)", arguments)) - {"void"}
                self.assertEqual(wanted - named, set(), f"{path.name}: {name}")

    def test_names_of_a_page_are_the_functions_of_its_synopsis(self):
        exported = set(re.findall(r"^\s+(\w+);", (SOURCE / "cmake/exports.map").read_text(), re.M))
        described = set()
        for name, page in C_PAGES.items():
            names = set(re.findall(r"^\.Nm (\w+)", page, re.M))
            shown = {re.search(r"(\w+)(?:\(|\[|$)", d).group(1)
                     for ds in page_declarations(page).values() for d in ds}
            self.assertEqual(names, {s for s in shown if s + "(" in HEADERS_TEXT}, name)
            described |= shown
        self.assertEqual(described, exported)

    def test_the_page_of_the_cpp_header(self):
        page = PAGES["ovrmail.hpp.3"]
        declared = set()
        for header in (SOURCE / "include").glob("*.hpp"):
            declared |= cpp_declarations(header.read_text().partition("\nnamespace ovrmail {")[2])
        synopsis = page.partition("namespace ovrmail {")[2].partition(".Ed")[0]
        self.assertEqual(declared, cpp_declarations(synopsis))
        code = page.partition("-offset indent\n#")[2].partition("\n.Ed")[0].replace("\\e", "\\")
        subprocess.run([COMPILER, "-xc++", "-std=c++17", "-Wall", "-Werror", "-fsyntax-only", "-I",
                        SOURCE / "include", "-"], input="#" + code, text=True, check=True)

    def test_result_codes(self):
        api = dict(re.findall(r"(MAIL_(?:E|SENT)\w*)\s*=\s*(-?\d+)", HEADERS["mail_types.h"]))
        shown = dict(re.findall(r"^\.It Dv (MAIL_(?:E|SENT)\w*) Pq \\?(-?\d+)$",
                                PAGES["ovrmail_api.3"], re.M))
        self.assertEqual(api, shown)
        numbers = {int(n) for n in api.values()}
        overview = PAGES["ovrmail.7"].split(".Sh TROUBLESHOOTING\n")[1]
        told = {int(n) for n in re.findall(r"^\.It \\?(-?\d+)$", overview, re.M)}
        self.assertEqual(numbers - {0}, told)
        for page, path in {"ovrmail_smtp.3": "smtp/result.hpp", "ovrmail_mime.3": "mime/result.hpp",
                           "ovrmail_pop3.3": "pop3/transport.hpp"}.items():
            with self.subTest(page=page):
                self.assertEqual(codes_of_enum(path, "Result") - {0}, codes_of_page(PAGES[page]))

    def test_references_lead_to_pages(self):
        for name, page in PAGES.items():
            for target, section in re.findall(r"\.Xr (ovrm\S*|trc_conf|rmmail\.ini) (\d)", page):
                self.assertTrue(f"{target}.{section}" in PAGES, f"{name}: {target}({section})")

    def test_translations_have_every_section_and_item(self):
        for name in (name for name in PAGES if name.startswith("ja/")):
            has, wanted = (re.findall(r"^\.(?:S[hs]|[BE][ld]|It(?:.*Fl -[\w-]+)?)\b", page, re.M)
                           for page in (PAGES[name], PAGES[name[3:]]))
            self.assertEqual(has, wanted, name)

    def test_relay_page_names_every_file(self):
        files = PAGES["ovrmail-relay.7"].split(".Sh FILES\n")[1].split("\n.Sh ")[0]
        self.assertEqual(set(re.findall(r"^\.It Pa (\S+)$", files, re.M)),
                         {path.name for path in (SOURCE / "examples/relay").iterdir()})

    def test_examples_compile(self):
        for page in C_PAGES.values():
            example = page.partition(".Sh EXAMPLES\n")[2].partition("\n.Ed")[0]
            code = example.split("-offset indent\n")[1].replace("\\e", "\\").replace("\\&", "")
            with tempfile.NamedTemporaryFile("w", suffix=".c") as file:
                file.write(code + "\n")
                file.flush()
                subprocess.run([COMPILER, "-std=c11", "-D_DEFAULT_SOURCE", "-Wall", "-Wextra",
                                "-Werror", "-I", SOURCE / "include", "-fsyntax-only", file.name],
                               check=True)

    @unittest.skipUnless(shutil.which("mandoc"), "needs mandoc")
    def test_lint(self):
        said = subprocess.run(["mandoc", "-T", "lint", *sorted(PAGES)], cwd=MANUAL,
                              capture_output=True, text=True)
        # No findings: what depends on the manual pages of the machine, that NAME is translated, and
        # that mandoc reads characters of a translation as escapes, which are long and end in "]".
        known = re.compile(r"referenced manual not found|mandoc\.db|: ja/.*( NAME | \"NAME\"|"
                           r"line longer than 80 bytes|trailing delimiter: .*\\\[u[0-9A-F]+\]$)")
        findings = (said.stdout + said.stderr).splitlines()
        self.assertEqual([line for line in findings if not known.search(line)], [])


class Tool(unittest.TestCase):
    def test_options_are_the_same_everywhere(self):
        said = subprocess.run([TOOL, "--help"], capture_output=True, text=True, check=True).stdout
        known = set(re.findall(r"^  (?:-\w, |    )--([\w-]+)", said, re.M))
        page = set(re.findall(r"^\.It (?:Fl \w , )?Fl -([\w-]+)", PAGES["ovrm-send.1"], re.M))
        self.assertEqual(known, page)
        completion = (SOURCE / "completions/ovrm-send.bash").read_text()
        words = re.search(r"long='(.*?)'", completion, re.S).group(1)
        self.assertEqual(known, {w.strip("-=") if w.endswith("=") else w[2:] for w in words.split()})

    def test_completion(self):
        script = (f"source {SOURCE}/completions/ovrm-send.bash; COMP_WORDS=(ovrm-send --auth = cr);"
                  "COMP_CWORD=3; _ovrm_send; echo ${COMPREPLY[@]}; COMP_WORDS=(ovrm-send --pas);"
                  "COMP_CWORD=1; _ovrm_send; echo ${COMPREPLY[@]}")
        said = subprocess.run(["bash", "-c", script], capture_output=True, text=True).stdout
        self.assertEqual(said.split("\n")[:2], ["cram-md5", "--password-file= --password-env="])


class Readme(unittest.TestCase):
    def test_links_lead_somewhere(self):
        for document in (*SOURCE.glob("*.md"), *SOURCE.glob("docs/*.md")):
            for target in re.findall(r"\]\(([^)#:]+)\)", document.read_text()):
                self.assertTrue((document.parent / target).exists(), f"{document.name}: {target}")

    def test_security_page_names_tests_that_exist(self):
        tests = "".join(path.read_text() for path in (SOURCE / "tests").rglob("*.*")
                        if path.suffix in (".cpp", ".py"))
        known = set(re.findall(r"\bdef (test_\w+)", tests)) | {
            ".".join(case) for case in re.findall(r"\bTEST(?:_[FP])?\((\w+), (\w+)\)", tests)}
        told = re.findall(r"`(test_\w+|[A-Z]\w+\.[A-Z]\w+)`",
                          (SOURCE / "docs/security.md").read_text())
        self.assertGreater(len(told), 30)
        self.assertEqual(set(told) - known - {"Suite.Name", "test_name"}, set())

    def test_programs_are_the_tested_examples(self):
        programs = [(SOURCE / "examples" / name).read_text()
                    for name in ("plain.py", "send.cpp", "plain.c")]
        for document in (SOURCE / "README.md", SOURCE / "README.ja.md"):
            shown = re.findall(r"^```\w+\n(.*?)^```$", document.read_text(), re.M | re.S)
            self.assertEqual(shown, programs, document.name)


HEADERS_TEXT = "".join(HEADERS.values())
if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
