#!/usr/bin/env python3
"""Prints a header or a page in the form that Doxygen reads.

- A link of a page to a public header leads to its page. One to another file that is no page becomes its text.
- A fence of a page keeps its language, if Doxygen knows it, or becomes preformatted text.
- The head is the text of the file.
- A comment at the end of a line is that of the declaration before it.
- A comment over several declarations without an empty line between them is the comment of each. So is one in the
  plural over several functions with bodies.
- What Doxygen would take for a command or a tag is text, unless it is in backquotes.
- The comment of a class that is a scope is that of its constructors without one.
- A comment of several variables in one declaration is that of each.
- Specialisations without a comment are left out: they have the names of their template.
"""
import html
import os
import re
import sys

LINK = r"\[([^][]+)\]\(((?:\.\./)*)([\w-]*[./][\w./-]*)(?:#[\w-]+)?\)"
BREAKS = ("#i", "#e", "#p", "#u", "//", "public:", "protected:", "private:")   # end the reach of a comment


def link(match):
    """Returns a link of a page as the site has it."""
    label, up, path = match.groups()
    if path.endswith((".md", ".png")):
        return f"[{label}]({up}{path})"   # Doxygen does not find headings
    if path.startswith("zqcore/") and path in os.environ["ZQCORE_HEADERS"].split():
        return f"[{label}](@ref {path})"
    return label


def plain(text):
    """Escapes a comment, except what is in backquotes and indented examples."""
    if text.startswith("     "):
        return text
    parts = text.split("`")
    parts[::2] = [re.sub(r"[\\<>@#%&]", r"\\\g<0>", part) for part in parts[::2]]
    return "`".join(parts)


text = open(sys.argv[1], encoding="utf-8").read()
if sys.argv[1].endswith(".md"):
    for block in re.split(r"(?ms)(^```.*?^```$)", text):
        fence, end, body = block.partition("\n")
        if fence.startswith(("```cpp", "```cmake")):
            fence = fence.split(" ")[0]
        elif fence.startswith("```"):   # quotes in it confuse Doxygen
            body = re.sub(r"[\\@#%]", r"\\\g<0>", html.escape(body.removesuffix("```"), quote=True))
            fence, body = "<pre>", body + "</pre>\n\n&nbsp;\n"   # a fence needs a paragraph before it
        else:
            fence, body = re.sub(LINK, link, fence), re.sub(LINK, link, body)
        sys.stdout.write(fence + end + body)
    sys.exit()

output = []
head = True
comment = []       # the comment above the declaration
complete = False   # the declaration before has ended
depth = 0          # of braces and parentheses in the declaration
hidden = None      # depth of a specialisation that is left out
scopes = {}        # the comments of classes that are scopes
for number, line in enumerate(text.split("\n")):
    text = line.strip()
    if head and line.startswith("//"):
        output.append(("/// @file\n///" if number == 0 else "///") + plain(line[2:]))
        continue
    head = False
    if output[-1].endswith("\\"):   # inside of a macro
        output.append(line)
        complete = not line.endswith("\\")
        continue
    if hidden is None and (text == "template <>" or re.match(r"struct std::", text)
                           or not comment and re.match(r"(struct|class) \w+<", text)):
        hidden = 0
        at = len(output)
        while output[at - 1].startswith(("template", "///")):
            at -= 1
        output.insert(at, "/// @cond")
    if hidden is not None:
        output.append(line)
        hidden += line.count("{") - line.count("}")
        if hidden == 0 and text.endswith(";"):
            output.append("/// @endcond")
            hidden = None
            comment, complete, depth = [], False, 0
        continue
    if text.startswith("///"):
        if complete or not output[-1].strip().startswith("///"):
            comment = []
        line = line[:line.index("///") + 3] + plain(text[3:])
        comment.append(line)
        complete, depth = False, 0
    elif not text and complete and output[-1] == "}" and re.match(r"/// [A-Z][a-z]*[a-rt-z] ", "".join(comment[:1])):
        pass   # "Return", not "Returns": the next function has the same comment
    elif not text or text.startswith(BREAKS):
        comment, complete, depth = [], False, 0
    else:
        code, _, trailing = re.sub(r"  // ", " // ", line).partition(" // ")
        bare = re.sub(r"\"[^\"]*\"|'.'", "", code)
        if kind := re.match(r"(?:template <.*> )?(?:struct|class|enum|namespace)\b(?: ZQ_API)?(?: (\w+))?[^;]*$", text):
            if re.search(r"\bscope\b", "".join(comment), re.I):
                scopes[kind[1]] = comment
            comment = []   # it is not that of the members
        constructor = re.match(r"(?:explicit )?(\w+)\(", text)
        if constructor and not comment and constructor[1] in scopes and not text.endswith(("= delete;", "= default;")):
            output.extend(scopes[constructor[1]])
        if trailing and depth <= 1:
            line = code + " ///< " + plain(trailing)
        elif complete and comment and depth == 0 and not text.startswith(("}", "{", ":", ",")):
            output.extend(comment)
        depth += bare.count("{") + bare.count("(") - bare.count("}") - bare.count(")")
        if depth < 0:
            comment, depth = [], 0
        complete = depth == 0 and (bare.rstrip().endswith((";", "}", ",")) or text.startswith("#define") and text[-1] != "\\")
    several = re.fullmatch(r"( *[A-Za-z_][\w: ]* )(\w+(?: = \w+)?(?:, \w+(?: = \w+)?)+);( +///< .*)?", line)
    for name in several[2].split(", ") if several else []:
        output.extend([*comment, f"{several[1]}{name};{several[3] or ''}"])
    if not several:
        output.append(line)
sys.stdout.write("\n".join(output))
