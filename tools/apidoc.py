#!/usr/bin/env python3
"""Writes the reference of the C interface from the comments of the headers in include/.

use: apidoc.py markdown FOLDER        one page for each part of the headers, and an index
     apidoc.py check FOLDER           whether the pages there are what would be written now
     apidoc.py man FOLDER VERSION DATE
                                      manual pages of section 3, one for each header and each
                                      part, and a file for each name that leads to its page

A header is laid out in blocks with empty lines between them: "/* ---- part */" begins a part; a
comment, with the declarations under it, is an entry; a comment alone introduces its part. Within a
comment, paragraphs, "- " lists and columns of "name  text" are told apart. What does not fit is an
error: nothing is left out in silence.

References in comments: the name of a function or an enumerator leads to its entry, "[part]" to the
page of that part, and "docs/NAME.md" to that document. tests/docs/links_test.py follows them.
"""

import difflib
import pathlib
import re
import sys

FOLDER = pathlib.Path(__file__).resolve().parent.parent / "include"

# The headers, their parts in order, and the pages that these become.
HEADERS = {
    "zelieml.h": {
        "messages": "messages",
        "posting": "posting",
        "the engine": "engine",
        "result records": "results",
        "settings": "settings",
        "passwords and hashes": "passwords",
        "server records and login tests": "servers",
        "receiving": "receiving",
    },
    "zelieml_ext.h": {
        "versions": "versions",
        "reasons": "reasons",
        "login tests with reasons": "logins",
        "TLS for server records": "tls",
        "more of received mails": "received",
        "the probe": "probe",
        "the preview": "preview",
        "checks": "checks",
        "the queue": "queue",
    },
}

# What every manual page leads to besides.
OTHER_PAGES = [("zelieml-message", 5), ("zelismes.cf", 5), ("zelieml", 7)]

DEFINITION = re.compile(r"(?P<indent> *)(?P<term>\w+(?:, \w+)*)  +(?P<text>\S.*)")


class LayoutError(Exception):
    pass


class Entry:
    """What one comment documents: a title, paragraphs, declarations."""

    def __init__(self, title, summary, paragraphs, code):
        self.title = title
        self.summary = summary
        self.paragraphs = paragraphs
        self.code = code
        self.names = declared(code)
        self.enumerators = re.findall(r"^ +(\w+) += \w+,?$", without_comments(code), re.MULTILINE)


class Part:
    def __init__(self, title, pages):
        if title not in pages:
            raise LayoutError(f'the part "{title}" has no page')
        self.title = title
        self.page = pages[title]
        self.introduction = []
        self.entries = []

    def names(self):
        return [name for entry in self.entries for name in entry.names]


class Header:
    """What one header documents: its title, its first comment, its parts."""

    def __init__(self, name, title, overview, parts):
        self.name = name
        self.stem = name.removesuffix(".h")
        self.title = title
        self.overview = overview
        self.parts = parts


# ------------------------------------------------------------------ reading the headers


def without_comments(code):
    return re.sub(r" */\*.*?\*/", "", code, flags=re.DOTALL)


def declared(code):
    """The names that declarations introduce."""
    text = without_comments(code).strip()
    macros = re.findall(r"^#define (\w+) +\S.*$", text, re.MULTILINE)
    if len(macros) == len(text.splitlines()):
        return macros
    kind = re.fullmatch(r"typedef (?:enum|struct) (\w+) \{[^}]*\} \1;", text)
    if kind:
        return [kind[1]]
    names = []
    for declaration in filter(None, (d.strip() for d in text.split(";"))):
        name = re.match(r"[\w ]+?[ *]*(\w+)(\(|$)", declaration)
        if not name:
            raise LayoutError(f"what does this declare? {declaration}")
        names.append(name[1])
    return names


def comment_lines(comment):
    """The lines of a comment, without what frames them."""
    alone = re.fullmatch(r"/\* (.*) \*/", comment)
    if alone:
        return [alone[1]]
    lines = comment.strip().splitlines()
    if lines[0] != "/*" or lines[-1].strip() != "*/":
        raise LayoutError(f"a comment of another shape: {lines[0]}")
    return [re.sub(r"^ \* ?", "", line).rstrip() for line in lines[1:-1]]


def paragraphs_of(lines):
    """("text", lines), ("list", items), and ("terms", [(term, lines)]) in their order.

    Indented columns are "subterms" of the last term before them.
    """
    result = []
    for chunk in re.split(r"\n{2,}", "\n".join(lines).strip("\n")):
        chunk = chunk.splitlines()
        first = DEFINITION.fullmatch(chunk[0])
        if first:
            kind = "subterms" if first["indent"] else "terms"
            if kind == "subterms" and (not result or result[-1][0] != "terms"):
                raise LayoutError(f"indented columns of nothing: {chunk[0]}")
            result.append((kind, columns(chunk, len(first["indent"]))))
        elif chunk[0].startswith("- "):
            result.append(("list", bullets(chunk)))
        elif any(line.startswith(" ") for line in chunk):
            raise LayoutError(f"an indented line in a paragraph: {chunk[0]}")
        else:
            result.append(("text", chunk))
    return result


def columns(chunk, indent):
    items = []
    for line in chunk:
        definition = DEFINITION.fullmatch(line)
        if definition and len(definition["indent"]) == indent:
            items.append((definition["term"], [definition["text"]]))
        elif line.startswith(" " * (indent + 1)):
            items[-1][1].append(line.strip())
        else:
            raise LayoutError(f"not a column: {line}")
    return items


def bullets(chunk):
    items = []
    for line in chunk:
        if line.startswith("- "):
            items.append([line[2:]])
        elif line.startswith("  "):
            items[-1].append(line.strip())
        else:
            raise LayoutError(f"not a list: {line}")
    return items


def prototypes(code):
    """Declarations as a user reads them, without the macro that exports them."""
    macro = "ZELIEML_API "
    lines = []
    shift = 0
    for line in code.splitlines():
        if line.startswith(macro):
            line = line[len(macro):]
            shift = 0 if line.endswith(";") else len(macro)
        elif shift:
            line = line[shift:]
        lines.append(line)
    return "\n".join(lines)


def beginnings(first_name, name):
    """What may stand before a name of a title: "_ending" is short for the first one with another
    ending."""
    if not name.startswith("_"):
        return [""]
    return [first_name[:place.start()] for place in re.finditer("_", first_name)]


def make_entry(lines, code):
    code = prototypes(code)
    paragraphs = paragraphs_of(lines)
    kind, first = paragraphs[0]
    title = re.fullmatch(r"(\w+(?:, \w+)*) - (.*)", " ".join(first)) if kind == "text" else None
    names = declared(code)
    if not title:
        return Entry(", ".join(names), "", paragraphs, code)
    first_name, *others = title[1].split(", ")
    for name in [first_name] + others:
        if not any(beginning + name in names for beginning in beginnings(first_name, name)):
            raise LayoutError(f"{name} is documented, and not declared under its comment")
    return Entry(title[1], title[2], paragraphs[1:], code)


def read_header(header, pages):
    text = (FOLDER / header).read_text(encoding="utf-8")
    start = text.index("/* ---")
    end = text.rindex("#ifdef __cplusplus")
    overview = paragraphs_of(comment_lines(text[:text.index("*/") + 2]))
    title = re.fullmatch(re.escape(header) + r" - (.*)", " ".join(overview[0][1]))[1]

    parts = []
    for block in re.split(r"\n{2,}", text[start:end].strip()):
        rule = re.fullmatch(r"/\* -{3,} (.*) \*/", block)
        if rule:
            parts.append(Part(rule[1], pages))
            continue
        split = block.find("*/\n")
        comment, code = (block, "") if split < 0 else (block[:split + 2], block[split + 3:])
        lines = comment_lines(comment)
        if code:
            parts[-1].entries.append(make_entry(lines, code))
        else:
            parts[-1].introduction += paragraphs_of(lines)
    titles = [part.title for part in parts]
    if titles != [title for title in pages if title in titles]:
        raise LayoutError("the parts stand in another order, or one of them twice")
    return Header(header, title, overview[1:], parts)


def read_headers():
    headers = []
    for name, pages in HEADERS.items():
        try:
            headers.append(read_header(name, pages))
        except LayoutError as error:
            sys.exit(f"{name}: {error}")
    return headers


# ------------------------------------------------------------------ references


class References:
    """Finds the references in a line of text."""

    def __init__(self, headers):
        parts = [part for header in headers for part in header.parts]
        self.pages = {part.title: part.page for part in parts}
        self.homes = {name: (part, entry) for part in parts for entry in part.entries
                      for name in entry.names + entry.enumerators}
        titles = "|".join(map(re.escape, self.pages))
        self.pattern = re.compile(
            rf"\[(?P<part>{titles})\]|\bdocs/(?P<document>\w+\.md)\b"
            rf"|\b(?P<name>{'|'.join(self.homes)})\b|(?<!\w)(?P<pointee>\*\w+)")

    def replaced(self, line, plain, found):
        """The line, its references given to one function and what is between them to the other."""
        pieces = []
        end = 0
        for match in self.pattern.finditer(line):
            kind = match.lastgroup
            pieces += [plain(line[end:match.start()]), found(kind, match[kind])]
            end = match.end()
        return "".join(pieces) + plain(line[end:])


# ------------------------------------------------------------------ Markdown


class Markdown:
    RULES = "[rules that hold for all calls](README.md)"

    def __init__(self, headers):
        self.headers = headers
        self.references = References(headers)
        self.here = []  # the names that the entry being written declares
        self.linked = set()  # the names to which the page leads

    def inline(self, line):
        text = self.references.replaced(line, self.escaped, self.reference)
        # No line of a paragraph begins anything else.
        return re.sub(r"^([-+#>=]|\d+(?=[.)]\s))", r"\\\1", text)

    def reference(self, kind, text):
        if kind == "part":
            return f"[{text}]({self.references.pages[text]}.md)"
        if kind == "document":
            return f"[docs/{text}](../{text})"
        if kind == "pointee" or text in self.here:
            return f"`{text}`"
        self.linked.add(text)
        return f"[`{text}`]"

    def targets(self):
        """Where the names that the page has linked are; the next page begins with none."""
        lines = []
        for name in sorted(self.linked):
            part, entry = self.references.homes[name]
            lines.append(f"[`{name}`]: {part.page}.md#{self.anchor(entry.title)}\n")
        self.linked.clear()
        return ["".join(lines)] if lines else []

    @staticmethod
    def anchor(heading):
        return re.sub(r"[^\w\- ]", "", heading.lower()).replace(" ", "-")

    @staticmethod
    def escaped(text):
        return re.sub(r"[\\`*<\[]|(?<!\w)_(?=\w)", r"\\\g<0>", text)

    def item(self, lines, term="", indent=""):
        first, *others = [self.inline(line) for line in lines]
        return f"{indent}- {term}{first}\n" + "".join(f"{indent}  {line}\n" for line in others)

    def paragraphs(self, paragraphs):
        out = []
        for kind, content in paragraphs:
            if kind == "text":
                out.append("".join(self.inline(line) + "\n" for line in content))
            elif kind == "list":
                out.append("".join(self.item(lines) for lines in content))
            else:
                indent = "  " if kind == "subterms" else ""
                out.append("".join(
                    self.item(lines, ", ".join(f"`{t}`" for t in term.split(", ")) + ": ", indent)
                    for term, lines in content))
        return "\n".join(out)

    def entry(self, entry):
        self.here = entry.names + entry.enumerators
        blocks = [f"## {self.escaped(entry.title)}\n"]
        if entry.summary:
            blocks.append(self.inline(sentence(entry.summary)) + "\n")
        blocks.append(f"```c\n{entry.code}\n```\n")
        if entry.paragraphs:
            blocks.append(self.paragraphs(entry.paragraphs))
        return "\n".join(blocks)

    @staticmethod
    def begin(source, heading):
        return (f"<!-- Written by tools/apidoc.py from {source}: change the text there. -->\n\n"
                f"# {heading}\n")

    @staticmethod
    def chapter(header):
        """The heading of a header on the first page; the first header is the page itself."""
        return f"The header {header.name}"

    def rules(self, header):
        if header is self.headers[0]:
            return f"The {self.RULES} are on the first page.\n"
        own = f"[those of this header](README.md#{self.anchor(self.chapter(header))})"
        return f"Include `{header.name}`. The {self.RULES} and\n{own} are on the first page.\n"

    def page(self, header, part):
        self.here = []
        blocks = [self.begin(f"include/{header.name}", heading(part.title)),
                  self.rules(header)]
        if part.introduction:
            blocks.append(self.paragraphs(part.introduction))
        blocks += [self.entry(entry) for entry in part.entries]
        return "\n".join(blocks + self.targets())

    def index(self):
        self.here = []
        first, *others = self.headers
        blocks = [self.begin("the headers in include", "The C interface"),
                  self.paragraphs(first.overview), *self.tables(first, "##")]
        for header in others:
            blocks += [f"## {self.escaped(self.chapter(header))}\n",
                       self.inline(sentence(header.title)) + "\n",
                       self.paragraphs(header.overview), *self.tables(header, "###")]
        return "\n".join(blocks + self.targets())

    def tables(self, header, level):
        return [f"{level} [{heading(part.title)}]({part.page}.md)\n\n| | |\n|---|---|\n" +
                "".join(map(self.row, part.entries)) for part in header.parts]

    def row(self, entry):
        names = self.inline(", ".join(entry.names))
        what = entry.summary or " ".join(entry.paragraphs[0][1]).partition(". ")[0]
        what = what[0].lower() + what[1:].rstrip(".")
        return f"| {names} | {self.inline(what)} |\n"

    def files(self):
        files = {f"{part.page}.md": self.page(header, part)
                 for header in self.headers for part in header.parts}
        files["README.md"] = self.index()
        return files


def heading(text):
    return text[0].upper() + text[1:]


def sentence(text):
    return heading(text) + "."


# ------------------------------------------------------------------ manual pages


class Manual:
    def __init__(self, headers, version, date):
        self.headers = headers
        self.version, self.date = version, date
        self.references = References(headers)
        self.here = []  # the names that the page declares

    @staticmethod
    def escaped(text):
        return text.replace("\\", "\\e").replace("-", "\\-")

    @staticmethod
    def line(text):
        # No line is taken for a request.
        return ("\\&" if text[:1] in (".", "'") else "") + text + "\n"

    def reference(self, kind, text):
        if kind == "part":
            return f"\\fBzelieml_{self.references.pages[text]}\\fR(3)"
        if kind == "document":
            return f"docs/{text} of the sources"
        if kind == "pointee" or text in self.here:
            return f"\\fB{text}\\fR"
        _, entry = self.references.homes[text]
        return f"\\fB{text}\\fR(3)" if text in entry.names else text

    def lines(self, lines):
        return "".join(self.line(self.references.replaced(line, self.escaped, self.reference))
                       for line in lines)

    def code(self, entry):
        return "".join(self.line(self.escaped(line)) for line in entry.code.splitlines())

    def paragraphs(self, paragraphs):
        out = []
        for kind, content in paragraphs:
            if kind == "text":
                out.append(".PP\n" + self.lines(content))
            elif kind == "list":
                out += [".IP \\(bu 2\n" + self.lines(lines) for lines in content]
            else:
                items = [f".TP\n.B {term}\n" + self.lines(lines) for term, lines in content]
                out += items if kind == "terms" else [".RS\n", *items, ".RE\n"]
        # A heading brings its own distance.
        return re.sub(r"^\.PP\n", "", "".join(out))

    def rules(self, header):
        if header is self.headers[0]:
            return f"The rules that hold for all calls are in \\fB{header.stem}\\fR(3).\n"
        return (f"The rules that hold for all calls are in \\fB{self.headers[0].stem}\\fR(3), those of "
                f"this header in\n\\fB{header.stem}\\fR(3).\n")

    def begin(self, header, name, names, what):
        return (f'.\\" Written by tools/apidoc.py from include/{header.name}.\n'
                f'.TH {name.upper()} 3 "{self.date}" "zelieml {self.version}" "zelieml"\n'
                f".SH NAME\n{', '.join(names)} \\- {self.escaped(what)}\n"
                f".SH SYNOPSIS\n.nf\n.B #include <{header.name}>\n")

    def page(self, header, part):
        self.here = part.names()
        out = [self.begin(header, f"zelieml_{part.page}", part.names(), f"zelieml: {part.title}")]
        for entry in part.entries:
            out.append(".PP\n" + self.code(entry))
        out.append(".fi\n.SH DESCRIPTION\n" + self.rules(header))
        if part.introduction:
            out.append(".PP\n" + self.paragraphs(part.introduction))
        for entry in part.entries:
            out.append(f'.SS "{entry.title}"\n')
            if entry.summary:
                out.append(self.lines([sentence(entry.summary)]) +
                           (".PP\n" if entry.paragraphs and entry.paragraphs[0][0] == "text" else ""))
            out.append(self.paragraphs(entry.paragraphs))
        return "".join(out) + self.see_also(f"zelieml_{part.page}")

    def overview(self, header):
        self.here = []
        return (self.begin(header, header.stem, [header.stem], header.title) +
                ".PP\nLink with \\-lzelieml.\n.fi\n.SH DESCRIPTION\n" +
                self.paragraphs(header.overview) + self.see_also(header.stem))

    def see_also(self, but):
        names = [name for header in self.headers
                 for name in [header.stem] + [f"zelieml_{part.page}" for part in header.parts]
                 if name != but]
        pages = [(name, 3) for name in names] + OTHER_PAGES
        return ".SH SEE ALSO\n" + " ,\n".join(f".BR {name} ({section})"
                                              for name, section in pages) + "\n"

    def files(self):
        files = {}
        for header in self.headers:
            files[f"{header.stem}.3"] = self.overview(header)
            for part in header.parts:
                files[f"zelieml_{part.page}.3"] = self.page(header, part)
                for name in part.names():
                    files[f"{name}.3"] = f".so man3/zelieml_{part.page}.3\n"
        return files


# ------------------------------------------------------------------ the three jobs


def write(folder, files):
    folder.mkdir(parents=True, exist_ok=True)
    for name, text in files.items():
        (folder / name).write_text(text, encoding="utf-8")


def check(folder, files):
    """Prints how the folder differs from what it should hold. Returns whether it does."""
    found = {path.name: path.read_text(encoding="utf-8") for path in folder.glob("*")}
    for name in sorted(found.keys() | files.keys()):
        sys.stdout.writelines(difflib.unified_diff(
            found.get(name, "").splitlines(True), files.get(name, "").splitlines(True),
            f"{folder.name}/{name}", "what the headers say now"))
    return found != files


def main(arguments):
    if len(arguments) == 2 and arguments[0] in ("markdown", "check"):
        files = Markdown(read_headers()).files()
        if arguments[0] == "check":
            return 1 if check(pathlib.Path(arguments[1]), files) else 0
        write(pathlib.Path(arguments[1]), files)
        return 0
    if len(arguments) == 4 and arguments[0] == "man":
        write(pathlib.Path(arguments[1]), Manual(read_headers(), *arguments[2:]).files())
        return 0
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
