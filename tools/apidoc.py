#!/usr/bin/env python3
"""Writes the reference of the C interface from the comments of include/zelieml.h.

use: apidoc.py markdown FOLDER        one page for each part of the header, and an index
     apidoc.py check FOLDER           whether the pages there are what would be written now
     apidoc.py man FOLDER VERSION DATE
                                      manual pages of section 3, one for each part, and a file for
                                      each name that leads to its page

The header is laid out in blocks with empty lines between them: "/* ---- part */" begins a part; a
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

HEADER = pathlib.Path(__file__).resolve().parent.parent / "include" / "zelieml.h"

# The parts of the header, and the pages that they become.
PAGES = {
    "messages": "messages",
    "posting": "posting",
    "the engine": "engine",
    "result records": "results",
    "settings": "settings",
    "passwords and hashes": "passwords",
    "server records and login tests": "servers",
    "receiving": "receiving",
}

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
        self.enumerators = re.findall(r"^ +(\w+) += \w+,?$", code, re.MULTILINE)


class Part:
    def __init__(self, title):
        if title not in PAGES:
            raise LayoutError(f'the part "{title}" has no page')
        self.title = title
        self.page = PAGES[title]
        self.introduction = []
        self.entries = []

    def names(self):
        return [name for entry in self.entries for name in entry.names]


# ------------------------------------------------------------------ reading the header


def declared(code):
    """The names that declarations introduce."""
    text = re.sub(r"/\*.*?\*/", "", code, flags=re.DOTALL)
    enum = re.fullmatch(r"typedef enum (\w+) \{[^}]*\} (\w+);", text.strip())
    if enum:
        return [enum[2]]
    names = []
    for declaration in filter(None, (d.strip() for d in text.split(";"))):
        name = re.match(r"[\w ]+?[ *]*(\w+)(\(|$)", declaration)
        if not name:
            raise LayoutError(f"what does this declare? {declaration}")
        names.append(name[1])
    return names


def comment_lines(comment):
    """The lines of a comment, without what frames them."""
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


def make_entry(lines, code):
    code = prototypes(code)
    paragraphs = paragraphs_of(lines)
    kind, first = paragraphs[0]
    title = re.fullmatch(r"(\w+(?:, \w+)*) - (.*)", " ".join(first)) if kind == "text" else None
    names = declared(code)
    if not title:
        return Entry(", ".join(names), "", paragraphs, code)
    first_name, *others = title[1].split(", ")
    stem = first_name.rpartition("_")[0]
    for name in [first_name] + [stem + o if o.startswith("_") else o for o in others]:
        if name not in names:
            raise LayoutError(f"{name} is documented, and not declared under its comment")
    return Entry(title[1], title[2], paragraphs[1:], code)


def read_header():
    """The paragraphs of the header's first comment, its title, and the parts."""
    text = HEADER.read_text(encoding="utf-8")
    start = text.index("/* ---")
    end = text.rindex("#ifdef __cplusplus")
    overview = paragraphs_of(comment_lines(text[:text.index("*/") + 2]))
    title = re.fullmatch(r"zelieml\.h - (.*)", " ".join(overview[0][1]))[1]

    parts = []
    for block in re.split(r"\n{2,}", text[start:end].strip()):
        rule = re.fullmatch(r"/\* -{3,} (.*) \*/", block)
        if rule:
            parts.append(Part(rule[1]))
            continue
        split = block.find("*/\n")
        comment, code = (block, "") if split < 0 else (block[:split + 2], block[split + 3:])
        lines = comment_lines(comment)
        if code:
            parts[-1].entries.append(make_entry(lines, code))
        else:
            parts[-1].introduction += paragraphs_of(lines)
    if [part.title for part in parts] != list(PAGES):
        raise LayoutError("a part is missing, or they stand in another order")
    return title, overview[1:], parts


# ------------------------------------------------------------------ references


class References:
    """Finds the references in a line of text."""

    def __init__(self, parts):
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
    NOTE = "<!-- Written by tools/apidoc.py from include/zelieml.h: change the text there. -->\n\n"
    RULES = "The [rules that hold for all calls](README.md) are on the first page.\n"

    def __init__(self, title, overview, parts):
        self.title, self.overview, self.parts = title, overview, parts
        self.references = References(parts)
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

    def page(self, part):
        self.here = []
        blocks = [self.NOTE + f"# {part.title.capitalize()}\n", self.RULES]
        if part.introduction:
            blocks.append(self.paragraphs(part.introduction))
        blocks += [self.entry(entry) for entry in part.entries]
        return "\n".join(blocks + self.targets())

    def index(self):
        self.here = []
        blocks = [self.NOTE + "# The C interface\n", self.paragraphs(self.overview)]
        for part in self.parts:
            rows = [f"## [{part.title.capitalize()}]({part.page}.md)\n\n| | |\n|---|---|\n"]
            for entry in part.entries:
                names = self.inline(", ".join(entry.names))
                what = entry.summary or " ".join(entry.paragraphs[0][1]).partition(". ")[0]
                what = what[0].lower() + what[1:].rstrip(".")
                rows.append(f"| {names} | {self.inline(what)} |\n")
            blocks.append("".join(rows))
        return "\n".join(blocks + self.targets())

    def files(self):
        files = {f"{part.page}.md": self.page(part) for part in self.parts}
        files["README.md"] = self.index()
        return files


def sentence(text):
    return text[0].upper() + text[1:] + "."


# ------------------------------------------------------------------ manual pages


class Manual:
    RULES = "The rules that hold for all calls are in \\fBzelieml\\fR(3).\n"

    def __init__(self, title, overview, parts, version, date):
        self.title, self.overview, self.parts = title, overview, parts
        self.version, self.date = version, date
        self.references = References(parts)
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

    def begin(self, name, names, what):
        return (f'.\\" Written by tools/apidoc.py from include/zelieml.h.\n'
                f'.TH {name.upper()} 3 "{self.date}" "zelieml {self.version}" "zelieml"\n'
                f".SH NAME\n{', '.join(names)} \\- {self.escaped(what)}\n"
                f".SH SYNOPSIS\n.nf\n.B #include <zelieml.h>\n")

    def page(self, part):
        self.here = part.names()
        out = [self.begin(f"zelieml_{part.page}", part.names(), f"zelieml: {part.title}")]
        for entry in part.entries:
            out.append(".PP\n" + self.code(entry))
        out.append(".fi\n.SH DESCRIPTION\n" + self.RULES)
        if part.introduction:
            out.append(".PP\n" + self.paragraphs(part.introduction))
        for entry in part.entries:
            out.append(f'.SS "{entry.title}"\n')
            if entry.summary:
                out.append(self.lines([sentence(entry.summary)]) +
                           (".PP\n" if entry.paragraphs and entry.paragraphs[0][0] == "text" else ""))
            out.append(self.paragraphs(entry.paragraphs))
        return "".join(out) + self.see_also(part.page)

    def see_also(self, but):
        names = ["zelieml"] + [f"zelieml_{part.page}" for part in self.parts]
        names = [name for name in names if name not in (but, f"zelieml_{but}")]
        return ".SH SEE ALSO\n" + " ,\n".join(f".BR {name} (3)" for name in names) + "\n"

    def files(self):
        files = {}
        for part in self.parts:
            files[f"zelieml_{part.page}.3"] = self.page(part)
            for name in part.names():
                files[f"{name}.3"] = f".so man3/zelieml_{part.page}.3\n"
        self.here = []
        files["zelieml.3"] = (self.begin("zelieml", ["zelieml"], self.title) +
                              ".PP\nLink with \\-lzelieml.\n.fi\n.SH DESCRIPTION\n" +
                              self.paragraphs(self.overview) + self.see_also("zelieml"))
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
            f"{folder.name}/{name}", "what the header says now"))
    return found != files


def main(arguments):
    if len(arguments) == 2 and arguments[0] in ("markdown", "check"):
        files = Markdown(*read_header()).files()
        if arguments[0] == "check":
            return 1 if check(pathlib.Path(arguments[1]), files) else 0
        write(pathlib.Path(arguments[1]), files)
        return 0
    if len(arguments) == 4 and arguments[0] == "man":
        write(pathlib.Path(arguments[1]), Manual(*read_header(), *arguments[2:]).files())
        return 0
    print(__doc__, file=sys.stderr)
    return 2


if __name__ == "__main__":
    try:
        sys.exit(main(sys.argv[1:]))
    except LayoutError as error:
        sys.exit(f"{HEADER.name}: {error}")
