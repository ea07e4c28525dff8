# Run by gdb: prints name, size and members of every class that the public headers declare, and of
# the templates' instances among their members. One class is a paragraph:
#
#   Hardware::ChipMemory 232
#     +0 Zint::Entity 48 (base)
#     +48 mode_ 4
import gdb
import re

OURS = re.compile(r"(Hardware|Zint|Mirl|Fru|Hal|Platform|Driver|Maps|Telemetry)::")
# A type's line in gdb's list: "42:     class Hardware::ChipMemory;".
LISTED = re.compile(r"^(?:\d+:)?\s+(?:class |struct |union )?((?:Hardware|Zint|Mirl|Fru|Hal|Platform|Driver|Maps|Telemetry)::.*);$")


def is_class(type_):
    return type_.code in (gdb.TYPE_CODE_STRUCT, gdb.TYPE_CODE_UNION)


def plain(type_):
    type_ = type_.unqualified().strip_typedefs()
    while type_.code == gdb.TYPE_CODE_ARRAY:
        type_ = type_.target().unqualified().strip_typedefs()
    return type_


def rows(type_):
    for field in type_.fields():
        if not hasattr(field, "bitpos"):  # a static member
            continue
        if field.name and field.name.startswith("_vptr"):
            name = "virtual table"
        else:
            name = field.name or "(unnamed)"
        extra = " (base)" if field.is_base_class else ""
        bits = f" bits {field.bitsize}" if field.bitsize else ""
        yield field, f"  +{field.bitpos // 8} {name} {field.type.sizeof}{bits}{extra}"


seen, waiting = {}, []
for line in gdb.execute("info types ::", to_string=True).split("\n"):
    found = LISTED.match(line)
    # Templates only where a class holds one; what is local to a function or a file is nobody's layout.
    if not found or re.search(r"[<(]|\bDetail::", found.group(1)):
        continue
    try:
        waiting.append(gdb.lookup_type(found.group(1)))
    except gdb.error:
        continue
while waiting:
    type_ = plain(waiting.pop())
    name = type_.name
    if not is_class(type_) or not name or not OURS.match(name) or name in seen or "(anonymous" in name:
        continue
    if not type_.fields() and type_.sizeof <= 1 and "<" in name:
        continue
    lines = []
    for field, line in rows(type_):
        lines.append(line)
        waiting.append(field.type)
    seen[name] = f"{name} {type_.sizeof}\n" + "".join(line + "\n" for line in lines)
for name in sorted(seen):
    print(seen[name])
