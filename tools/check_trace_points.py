#!/usr/bin/env python3
"""check_trace_points.py [ROOT] - fails when the table of trace points and the sources differ.

A trace point is a literal of letters, digits and "_" that ends in four hexadecimal digits, with or
without "-2". Each one that the library writes has a row in tools/ovrm_trace_points.cpp that names
its file, the function or the constant in which it stands, and what it is (a frame, a failure, a
detail). A row without a source, and a tool that knows a point without a row, are faults too.
The sources are read as clang-format leaves them: definitions begin in column 0, members in 4.
"""
import pathlib
import re
import sys

ROOT = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent.parent)
FOLDERS = ("mailapi", "mime", "smtp", "pop3", "log", "net", "toolkit", "common")
TABLE = "tools/ovrm_trace_points.cpp"
POINT = r"[A-Za-z]\w*[0-9A-Fa-f]{4}(?:-2)?"
LITERAL = re.compile(rf'"({POINT})"')
# What writes a point, by the word in front of the bracket; of other places the kind is not known.
KINDS = {"fail": "failure", "finish": "failure", "mark": "failure", "fail_at": "failure",
         "composition_failed": "failure", "write_failed": "failure", "note": "detail",
         "at": "detail"}
ROLES = {"kStep": "failure", "kWrong": "failure", "kCarry": "failure", "kDetail": "detail"}


def code_of(path):
    """The text of a source, comments blanked."""
    return re.sub(r"//[^\n]*|/\*.*?\*/", lambda m: re.sub(r"[^\n]", " ", m.group()),
                  path.read_text(), flags=re.S)


def last_definition(text, indent):
    """What begins last at this column: a definition, up to the end of the text."""
    begin = re.compile(rf"^ {{{indent}}}(?![ }}#]|namespace|using|template|public:|private:)\S", re.M)
    return text[[m.start() for m in begin.finditer(text)][-1]:]


def owner_of(text):
    """The function or constant at the end of the text."""
    definition = last_definition(text, 0)
    if re.match(r"(?:class|struct) ", definition):
        definition = last_definition(definition, 4)
    head = re.split(r'[{"]', definition)[0]
    name = re.search(r"(~?\w+)\(", head) or re.search(r"(\w+)(?:\[\])?[ =]*$", head)
    return name.group(1)


def kind_of(text):
    """What the call does whose arguments the text ends in; frames end in their two points."""
    call = re.search(r'(?:Trace(?:Scope|Frame) )?(\w+)\([^()]*(?:\([^()]*\)[^()]*)*$', text)
    if call is None:
        return None
    if call.group().startswith("Trace") or call.group(1) == "emplace":
        return "exit" if re.search(rf'"{POINT}", *$', text) else "entry"
    return KINDS.get(call.group(1))


def points_of_sources():
    for folder in FOLDERS:
        for path in sorted((ROOT / folder).glob("*.[ch]pp")):
            text = code_of(path)
            for literal in LITERAL.finditer(text):
                before = text[:literal.start()]
                yield (literal.group(1), str(path.relative_to(ROOT)), owner_of(before),
                       kind_of(before))


def rows_of_table(text):
    """Yields point, file, function and kind of each row."""
    row = re.compile(rf'"(\w+/\w+\.cpp)"|{{"({POINT})",\s*"({POINT})",\s*"(~?\w+)",'
                     rf'|{{"({POINT})",\s*"(~?\w+)",\s*(\w+),')
    file = None
    for m in row.finditer(text):
        if m.group(1):
            file = m.group(1)
        elif m.group(2):
            yield m.group(2), file, m.group(4), "entry"
            yield m.group(3), file, m.group(4), "exit"
        else:
            yield m.group(5), file, m.group(6), ROLES[m.group(7)]


def faults():
    places = {}
    for point, *place in points_of_sources():
        places.setdefault(point, []).append(tuple(place))
    table = code_of(ROOT / TABLE)
    rows = {}
    for point, *row in rows_of_table(table):
        if point in rows:
            yield f"{point} has two rows"
        rows[point] = tuple(row)
    if set(LITERAL.findall(table)) != set(rows) or len(rows) < 100:
        yield f"{TABLE} cannot be read: {sorted(set(LITERAL.findall(table)) ^ set(rows))}"
    for point in sorted(places.keys() - rows.keys()):
        file, owner, kind = places[point][0]
        yield f'{file}: {point} has no row in {TABLE}: "{point}", "{owner}" ({kind})'
    for point in sorted(rows.keys() - places.keys()):
        yield f"{TABLE}: no source writes {point}"
    for point in sorted(rows.keys() & places.keys()):
        file, owner, kind = rows[point]
        if not any(p[:2] == (file, owner) and p[2] in (None, kind) for p in places[point]):
            yield f"{TABLE}: {point} is not ({file}, {owner}, {kind}) but {places[point][0]}"
    for path in sorted((ROOT / "tools").glob("ovrm_trace*.cpp")):
        for point in sorted(set(LITERAL.findall(code_of(path))) - rows.keys() - {TABLE}):
            yield f"tools/{path.name}: {point} is no trace point"


found = list(faults())
print("\n".join(found) if found else "check_trace_points: table and sources agree")
sys.exit(bool(found))
