"""Compares the global names that the static library defines with a written list, in both directions: a name that is not
listed would collide in some server, and a listed name that is gone is a broken promise.

usage: check_symbols.py NM LIBRARY LIST
"""
import re
import subprocess
import sys

# What the headers of DCMTK and of the standard library leave in our objects: their inline functions and templates.
FOREIGN = re.compile(r"(std|__gnu_cxx|__cxxabiv1|dcmtk|log4cplus|OF\w*|Dcm\w*|DUL\w*)(::|\.|<|$)"
                     r"|_ZNK?St"  # of std, and beyond this nm to demangle
                     r"|decltype\b|auto |operator (new|delete)\b")
COMPILERS_OWN = ("DW.ref.", "__odr_asan", "__clang_call_terminate")
ABOUT = re.compile(r"(vtable|typeinfo name|typeinfo|VTT|guard variable|non-virtual thunk|virtual thunk|"
                   r"reference temporary #\d+|construction vtable) (for|to) ")


def owner(symbol):
    """The part of a demangled name that the list has: "kxmap::", "Value::", or a function's or variable's whole name."""
    name = ABOUT.sub("", symbol)
    isAbout = name != symbol
    name = re.sub(r"\[abi:\w+\]", "", name)
    operator = re.match(r"operator\S*(?=\()", name)
    name = operator.group() if operator else name.split("(")[0]
    if "::" in name:
        return name.split("::")[0] + "::"
    return name + "::" if isAbout else name  # a vtable belongs to its class


def definedNames(nm, library):
    """Yields each name that the linker sees, the inline leftovers of foreign headers excepted."""
    output = subprocess.run([nm, "-C", "--defined-only", "--extern-only", library], check=True, text=True,
                            stdout=subprocess.PIPE).stdout
    for line in output.splitlines():
        match = re.match(r"[0-9a-f]+ (\S) (.+)$", line)
        if not match:
            continue  # an object's name, or a blank line
        kind, symbol = match.groups()
        isWeak = kind in "WVu"
        plain = ABOUT.sub("", symbol)
        if isWeak and (FOREIGN.match(plain) or "<" in re.split(r"operator<|\(", plain)[0]):
            continue
        if plain.startswith(COMPILERS_OWN):
            continue
        if plain != symbol and ("(" in plain or plain.endswith("*")):
            continue  # about the type of a function or a pointer
        yield owner(symbol), symbol


def main():
    nm, library, listFile = sys.argv[1:]
    with open(listFile, encoding="utf-8") as file:
        listed = {line.strip() for line in file if line.strip() and not line.startswith("#")}
    defined = {}
    for name, symbol in definedNames(nm, library):
        defined.setdefault(name, symbol)
    unknown = sorted(set(defined) - listed)
    for name in unknown:
        print(f"{library}: not in {listFile}: {defined[name]}")
    gone = sorted(listed - set(defined))
    for name in gone:
        print(f"{library}: listed in {listFile}, but not defined: {name}")
    return 1 if unknown or gone else 0


sys.exit(main())
