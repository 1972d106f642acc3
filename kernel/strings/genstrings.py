#!/usr/bin/env python3
"""Builds the library's texts from the translation catalogues.

  genstrings.py --pot zqstrings.pot --po-dir DIR --out-dir OUT
      writes OUT/kernel/strings/zqstrings_ids.h (entry names and count),
      OUT/zqstrings_table.cpp (the string table in 18 languages) and
      OUT/zqstrings_res.cpp (string resources and dialog texts);
  genstrings.py --pot ... --po-dir ... --module-out FILE.cpp [--langs de,fr]
      writes the source of a language module: a shared object that exports
      its resource store as ZqResourceDirectory;
  genstrings.py --pot ... --po-dir ... --status-out FILE.inc
      writes the English texts of the status codes as rows for
      base/statustext.cpp;
  genstrings.py --pot ... --po-dir ... --check
      only checks the catalogues.

Every run checks that each translation carries the same %- and $-arguments,
in the same order, as its English text, and that every catalogue speaks of
texts the template knows; a mismatch is an error and ends the build.
"""

import argparse
import os
import re
import sys

# Column order of the string table, with the catalogue of each column.
COLUMNS = [
    (0x409, "en"), (0x411, "ja"), (0x407, "de"), (0x40A, "es"), (0x40C, "fr"),
    (0x804, "zh_CN"), (0x404, "zh_TW"), (0x406, "da"), (0x40B, "fi"), (0x410, "it"),
    (0x412, "ko"), (0x413, "nl"), (0x414, "nb"), (0x416, "pt_BR"), (0x816, "pt_PT"),
    (0x419, "ru"), (0x41D, "sv"), (0x415, "pl"),
]
LCID = {name: lcid for lcid, name in COLUMNS}
# Languages of the string resources and dialog texts.
RESOURCE_LANGS = ["en", "de", "es", "fr", "ja", "pl", "ru", "zh_CN"]

RT_STRING = 6
DIALOG_TEXT_TYPE = "ZQDLGTEXT"


class Entry:
    def __init__(self, ctx, msgid, msgstr, comments, where):
        self.ctx, self.msgid, self.msgstr, self.comments, self.where = ctx, msgid, msgstr, comments, where


def unescape(s, where):
    out, i = [], 0
    simple = {"n": "\n", "t": "\t", "r": "\r", '"': '"', "\\": "\\", "a": "\a", "b": "\b", "f": "\f", "v": "\v"}
    while i < len(s):
        c = s[i]
        if c != "\\":
            out.append(c)
            i += 1
            continue
        if i + 1 >= len(s) or s[i + 1] not in simple:
            raise SystemExit("%s: unknown escape in %r" % (where, s))
        out.append(simple[s[i + 1]])
        i += 2
    return "".join(out)


def parse_po(path):
    """Entries of a catalogue in file order (the header entry left out)."""
    entries, cur, field, comments, start = [], {}, None, [], 0

    def flush():
        nonlocal cur, comments
        if "msgid" in cur:
            where = "%s:%d" % (path, start)
            e = Entry(cur.get("msgctxt"), cur["msgid"], cur.get("msgstr", ""), comments, where)
            if e.msgid or e.ctx is not None:
                entries.append(e)
        cur, comments = {}, []

    with open(path, encoding="utf-8") as f:
        for n, line in enumerate(f, 1):
            line = line.rstrip("\n")
            if not line.strip():
                flush()
                field = None
                continue
            if line.startswith("#."):
                if "msgid" in cur:
                    flush()
                comments.append(line[2:].strip())
                continue
            if line.startswith("#"):
                continue
            m = re.match(r'^(msgctxt|msgid|msgstr)\s+"(.*)"$', line)
            if m:
                if m.group(1) in ("msgctxt", "msgid") and "msgid" in cur and m.group(1) != "msgid":
                    flush()
                if not cur:
                    start = n
                field = m.group(1)
                cur[field] = unescape(m.group(2), "%s:%d" % (path, n))
                continue
            m = re.match(r'^"(.*)"$', line)
            if m and field:
                cur[field] += unescape(m.group(1), "%s:%d" % (path, n))
                continue
            raise SystemExit("%s:%d: cannot read this line" % (path, n))
    flush()
    return entries


# A conversion of the kernel's print: "%" or "$", flags, width, precision,
# size, and a terminator; "!" and "&" take the separator that follows.
# "$(...)" is a token or a grouped number; "%%" and "$$" are no arguments.
ARG = re.compile(r"%%|\$\$|\$\([^)]*\)|[%$][-+ #0]*(?:\d+|\*)?(?:\.(?:\d+|\*))?(?:I64|ll|l|h|L|w)?"
                 r"(?:[!&][:.,]?|[*,:EGXcdefgiosuxz])")


def arguments(text):
    return [a for a in ARG.findall(text) if a not in ("%%", "$$")]


def check(template, catalogues):
    errors = []
    known = {e.ctx: e for e in template}
    for lang, entries in catalogues.items():
        for e in entries:
            t = known.get(e.ctx)
            if t is None:
                errors.append("%s: %r is not in the template" % (e.where, e.ctx))
                continue
            if e.msgid != t.msgid:
                errors.append("%s: %r has another English text than the template" % (e.where, e.ctx))
                continue
            if e.msgstr and arguments(e.msgstr) != arguments(e.msgid):
                errors.append("%s: %r: arguments %s differ from the English %s" % (
                    e.where, e.ctx, arguments(e.msgstr), arguments(e.msgid)))
    return errors


def c_string(text):
    """A UTF-16 literal that needs no particular source character set."""
    out = []
    for ch in text:
        o = ord(ch)
        if ch in '"\\':
            out.append("\\" + ch)
        elif 32 <= o < 127:
            out.append(ch)
        elif o < 32 or o == 127:
            out.append("\\%03o" % o)
        elif o < 0x10000:
            out.append("\\u%04X" % o)
        else:
            out.append("\\U%08X" % o)
    return 'u"' + "".join(out) + '"'


def load(args):
    template = parse_po(args.pot)
    catalogues = {}
    for name in os.listdir(args.po_dir):
        if name.endswith(".po"):
            lang = name[:-3]
            if lang not in LCID:
                raise SystemExit("%s: no column for the language %r" % (name, lang))
            catalogues[lang] = parse_po(os.path.join(args.po_dir, name))
    seen = set()
    for e in template:
        if not e.ctx or e.ctx in seen:
            raise SystemExit("%s: every text needs a msgctxt of its own" % e.where)
        seen.add(e.ctx)
    errors = check(template, catalogues)
    if errors:
        sys.stderr.write("\n".join(errors) + "\n")
        raise SystemExit("%d catalogue error(s)" % len(errors))
    translated = {lang: {e.ctx: e.msgstr for e in entries if e.msgstr} for lang, entries in catalogues.items()}
    translated["en"] = {e.ctx: e.msgid for e in template}
    return template, translated


class Literals:
    """UTF-16 texts, each written once however often it is used."""

    def __init__(self):
        self.names, self.lines = {}, []

    def name(self, text):
        if text not in self.names:
            n = "kS%d" % len(self.names)
            self.names[text] = n
            self.lines.append("const WCHAR %s[] = %s;" % (n, c_string(text)))
        return self.names[text]


def resource_number(comment_lines, lang):
    for c in comment_lines:
        m = re.match(r"^%s: resource (\d+)$" % re.escape(lang), c)
        if m:
            return int(m.group(1))
    return None


def write_file(path, text):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "w", encoding="utf-8") as f:
        f.write(text)


GENERATED = "// Generated by kernel/strings/genstrings.py from the catalogues; do not edit.\n"


def table_sources(template, translated):
    table = [e for e in template if ":" not in e.ctx]
    ids = [GENERATED, "#pragma once\n\n", "// The entries of the kernel's string table, in table order.\n",
           "enum class ZQSTR : int {\n"]
    ids += ["  %s,\n" % e.ctx for e in table]
    ids.append("};\n\nconstexpr int ZQLANG_TABLE_ENTRIES = %d;\n" % len(table))

    lits = Literals()
    rows = []
    for e in table:
        values = []
        for lcid, lang in COLUMNS:
            number = resource_number(e.comments, lang)
            if number is not None:
                values.append("0x%X" % number)
            else:
                text = translated.get(lang, {}).get(e.ctx, e.msgid)
                values.append("reinterpret_cast<UINT_PTR>(%s)" % lits.name(text))
        rows.append("    {0xFFFE, %d, 0, {%s}, 0},  // %s" % (len(COLUMNS), ", ".join(values), e.ctx))
    cpp = [GENERATED, '#include "kernel/langtable.h"\n\n', "namespace {\n"]
    cpp += [l + "\n" for l in lits.lines]
    cpp.append("}  // namespace\n\n")
    cpp.append("tZQLANGTABLE g_zqLangTable = {\n    {%s},\n    {\n" % ", ".join("0x%X" % c for c, _ in COLUMNS))
    cpp += [r + "\n" for r in rows]
    cpp.append("    }};\n")
    return "".join(ids), "".join(cpp)


def resource_items(template, translated, langs):
    """(type id, type name, name id, language, UTF-16 units) of every resource."""
    items = []
    strings = [e for e in template if e.ctx.startswith("res:")]
    dialogs = [e for e in template if e.ctx.startswith("dlg:")]
    for lang in langs:
        texts = translated.get(lang, {})
        blocks = {}
        for e in strings:
            if e.ctx in texts:
                number = int(e.ctx[4:])
                blocks.setdefault((number >> 4) + 1, {})[number & 15] = texts[e.ctx]
        for block, members in sorted(blocks.items()):
            units = []
            for i in range(16):
                text = members.get(i)
                if text is None:
                    units.append(0)
                else:
                    # Stored with its terminator, which the count includes.
                    data = text.encode("utf-16-le")
                    words = [int.from_bytes(data[k:k + 2], "little") for k in range(0, len(data), 2)]
                    units += [len(words) + 1] + words + [0]
            items.append((RT_STRING, None, block, LCID[lang], units))
        per_dialog = {}
        for e in dialogs:
            if e.ctx in texts:
                _, dialog, control = e.ctx.split(":")
                per_dialog.setdefault(int(dialog), []).append((int(control), texts[e.ctx]))
        for dialog, controls in sorted(per_dialog.items()):
            units = []
            for control, text in controls:
                data = text.encode("utf-16-le")
                words = [int.from_bytes(data[k:k + 2], "little") for k in range(0, len(data), 2)]
                units += [control, len(words) + 1] + words + [0]
            items.append((0, DIALOG_TEXT_TYPE, dialog, LCID[lang], units))
    # The order of the store's lookup: numbered types before named ones (names
    # without regard to case), then the name, then the language.
    items.sort(key=lambda r: (r[1] is not None, (r[1] or "").lower(), r[0], r[2], r[3]))
    return items


def resource_source(items, symbol, exported):
    out = [GENERATED, '#include "kernel/langres.h"\n\n', "namespace {\n"]
    for i, (_, _, _, _, units) in enumerate(items):
        body = ", ".join("0x%X" % u for u in units)
        out.append("const WORD kR%d[] = {%s};\n" % (i, body))
    out.append("const tZQRESOURCE kItems[] = {\n")
    for i, (type_id, type_name, name, lang, units) in enumerate(items):
        tn = c_string(type_name) if type_name else "nullptr"
        out.append("    {%d, %s, %d, nullptr, 0x%X, kR%d, %d},\n" % (type_id, tn, name, lang, i, len(units) * 2))
    out.append("};\n}  // namespace\n\n")
    if exported:
        out.append("const tZQRESOURCEDIR %s = {kItems, %d};\n\n" % (symbol, len(items)))
        out.append('extern "C" __attribute__((visibility("default"))) const tZQRESOURCEDIR* ZqResourceDirectory() {\n'
                   "  return &%s;\n}\n" % symbol)
    else:
        out.append("const tZQRESOURCEDIR %s = {kItems, %d};\n" % (symbol, len(items)))
    return "".join(out)


def c_narrow(text):
    """A narrow literal of UTF-8 bytes."""
    out = []
    for b in text.encode("utf-8"):
        ch = chr(b)
        if ch in '"\\':
            out.append("\\" + ch)
        elif 32 <= b < 127:
            out.append(ch)
        else:
            out.append("\\%03o" % b)
    return '"' + "".join(out) + '"'


def status_rows(template):
    """The English status texts, as the status vocabulary shows them outside a
    message box: without the two leading line feeds, and with the host
    application's name, which only a message box fills in, as "the
    application".  A text that waits for an argument is no finished
    sentence and is left out."""
    rows = {}
    for e in template:
        if e.ctx.startswith("STATUS_") and not [a for a in arguments(e.msgid) if not a.startswith("$(")]:
            code = int(e.ctx[7:], 16)
            text = e.msgid[2:] if e.msgid.startswith("\n\n") else e.msgid
            rows.setdefault(code, text.replace("$(AppName)", "the application"))
    out = [GENERATED, "// Rows of status codes and their English texts, rising by code.\n"]
    out += ["{0x%08X, %s},\n" % (code, c_narrow(text)) for code, text in sorted(rows.items())]
    return "".join(out)


def status_entries(template):
    """The table entries of the status codes, rising by code; a code listed
    twice keeps its first place."""
    first = {}
    for e in template:
        if e.ctx.startswith("STATUS_"):
            first.setdefault(int(e.ctx[7:], 16), e.ctx)
    out = ["\n// The table entry of each status code, rising by code.\n",
           "struct ZqStatusEntry {\n  DWORD code;\n  ZQSTR entry;\n};\n",
           "inline constexpr ZqStatusEntry kZqStatusEntries[] = {\n"]
    out += ["    {0x%08X, ZQSTR::%s},\n" % (code, ctx) for code, ctx in sorted(first.items())]
    out.append("};\n")
    return "".join(out)


def main():
    p = argparse.ArgumentParser()
    p.add_argument("--pot", required=True)
    p.add_argument("--po-dir", required=True)
    p.add_argument("--out-dir")
    p.add_argument("--module-out")
    p.add_argument("--langs", default=",".join(RESOURCE_LANGS))
    p.add_argument("--status-out")
    p.add_argument("--check", action="store_true")
    args = p.parse_args()
    template, translated = load(args)
    if args.check:
        return
    if args.out_dir:
        ids, table = table_sources(template, translated)
        ids += status_entries(template)
        write_file(os.path.join(args.out_dir, "kernel", "strings", "zqstrings_ids.h"), ids)
        write_file(os.path.join(args.out_dir, "zqstrings_table.cpp"), table)
        items = resource_items(template, translated, RESOURCE_LANGS)
        write_file(os.path.join(args.out_dir, "zqstrings_res.cpp"),
                         resource_source(items, "g_zqKernelResources", False))
    if args.status_out:
        write_file(args.status_out, status_rows(template))
    if args.module_out:
        langs = [l for l in args.langs.split(",") if l]
        items = resource_items(template, translated, langs)
        write_file(args.module_out, resource_source(items, "g_zqModuleResources", True))


if __name__ == "__main__":
    main()
