#!/usr/bin/env python3
"""abi_description.py LIBRARY HEADERS: writes what clients rely on: the symbols that the library
exports, and of the types in the public headers (the folder HEADERS) the layout and the slots of the
virtual operations. Sizes and offsets are in bytes.

libabigail's abidw reads that from the library's debug information. What is written here depends
neither on the compiler that built the library nor on how the library is made inside.
"""

import collections
import re
import shutil
import subprocess
import sys
import xml.etree.ElementTree as ElementTree

NAMESPACE = "VORTAN_MW"
SUFFIXES = {"pointer-type-def": "*", "lvalue": "&", "rvalue": "&&"}


def spelled_alike(name):
    """Spells a type in one way for all compilers, and without what goes without saying."""
    name = re.sub(
        r"\b((?:long )+|short )(unsigned )?int\b", lambda m: (m[2] or "") + m[1].rstrip(), name
    )
    name = re.sub(" (?=[*&>(])", "", name)
    name = re.sub(r"\b(\d+)L+\b", r"\1", name)
    nested = "[^<>]"
    for _ in range(4):
        nested = f"(?:[^<>]|<{nested}*>)"
    name = re.sub(f", std::(allocator|char_traits|default_delete)<{nested}*>", "", name)
    return name.replace("std::__cxx11::basic_string<char>", "std::string")


def size_of(element):
    return int(element.get("size-in-bits")) // 8


def offset_of(element):
    return int(element.get("layout-offset-in-bits")) // 8


# Which of a class's destructors a symbol is; c++filt calls them all the same.
DESTRUCTORS = {"D0Ev": " (deleting)", "D1Ev": " (complete)", "D2Ev": " (base)"}


def demangled(symbols):
    """The symbols as they are written in C++."""
    said = subprocess.run(
        ["c++filt"], check=True, stdout=subprocess.PIPE, input="\n".join(symbols), text=True
    ).stdout
    for symbol, name in zip(symbols, said.splitlines()):
        yield name + (DESTRUCTORS.get(symbol[-4:], "") if "~" in name else "")


class Library:
    """A library as abidw tells it."""

    def __init__(self, corpus):
        self.corpus = corpus
        self.parents = {child: parent for parent in corpus.iter() for child in parent}
        self.types = {element.get("id"): element for element in corpus.iter()}
        self.word = int(corpus.find("abi-instr").get("address-size")) // 8

    def name_of(self, element):
        """The name of a class or an enumeration, with those that it is nested in."""
        names = []
        while element.tag != "abi-instr":
            if element.tag in ("namespace-decl", "class-decl", "enum-decl"):
                names.insert(0, element.get("name"))
            element = self.parents[element]
        return spelled_alike("::".join(names))

    def type_of(self, element):
        """The name of the element's type, whatever other names it goes by."""
        used = self.types[element.get("type-id")]
        if used.tag == "typedef-decl":
            return self.type_of(used)
        if used.tag == "qualified-type-def":
            return "const " + self.type_of(used)
        if used.tag in ("pointer-type-def", "reference-type-def"):
            return self.type_of(used) + SUFFIXES[used.get("kind", used.tag)]
        if used.tag == "type-decl":
            return spelled_alike(used.get("name"))
        return self.name_of(used)

    def symbols(self):
        elements = self.corpus.findall("*/elf-symbol")
        names = demangled([element.get("name") for element in elements])
        for name, element in zip(names, elements):
            size = element.get("size")
            yield name + (f", {size} bytes" if size else "")

    def slots(self, name):
        """How many slots a class has for virtual operations: its table holds two words more."""
        mangled = "_ZTVN" + "".join(f"{len(part)}{part}" for part in name.split("::")) + "E"
        table = self.corpus.find(f"elf-variable-symbols/elf-symbol[@name='{mangled}']")
        return 0 if table is None else int(table.get("size")) // self.word - 2

    def is_public(self, element):
        """Whether it is a type in the public headers. Of the others abidw tells the name only."""
        if element.get("is-declaration-only"):
            return False
        while self.parents[element].tag != "abi-instr":
            element = self.parents[element]
            # clang does not record the access of an enumeration inside a class. abidw tells the
            # enumerators of those in public headers only.
            is_enumeration = element.find("enum-decl/enumerator") is not None
            is_hidden = element.get("access") == "private" and not is_enumeration
            if is_hidden or element.get("name") == "":
                return False
        return element.get("name") == NAMESPACE

    def public_types(self, kind):
        """The elements that tell about each type, by its name."""
        pieces = collections.defaultdict(list)
        for element in self.corpus.iter(kind):
            if self.is_public(element):
                pieces[self.name_of(element)].append(element)
        return pieces

    def operation(self, function):
        parameters = [
            self.type_of(parameter)
            for parameter in function.findall("parameter")
            if not parameter.get("is-artificial")
        ]
        # That an operation is const, abidw does not always notice.
        const = " const" if function.get("mangled-name").startswith("_ZNK") else ""
        result = self.type_of(function.find("return"))
        return f"{result} {function.get('name')}({', '.join(parameters)}){const}"

    def operations(self, name, pieces):
        """A destructor takes two slots, but gcc does not tell which: those that are left over."""
        slots = dict.fromkeys(range(self.slots(name)), "destructor")
        others = []
        for member in (member for piece in pieces for member in piece.findall("member-function")):
            function = member.find("function-decl")
            if member.get("destructor") or not function.get("mangled-name"):
                continue
            if member.get("vtable-offset"):
                slots[int(member.get("vtable-offset"))] = self.operation(function)
            elif member.get("access") != "private":
                kind = "static" if member.get("static") else "member"
                others.append(f"{kind} {self.operation(function)}")
        yield from sorted(others)  # compilers list them in different orders
        yield from (f"slot {slot} {operation}" for slot, operation in sorted(slots.items()))

    def layout(self, record):
        yield f"size {size_of(record)}"
        for base in record.findall("base-class"):
            yield f"{offset_of(base):4} is a {self.type_of(base)}"
        for member in record.findall("data-member"):
            if not member.get("static"):
                variable = member.find("var-decl")
                yield f"{offset_of(member):4} {variable.get('name')}: {self.type_of(variable)}"

    def enumerators(self, enumeration):
        underlying = enumeration.find("underlying-type").get("type-id")
        yield f"size {size_of(self.types[underlying])}"
        for enumerator in enumeration.findall("enumerator"):
            yield f"{enumerator.get('value'):>4} {enumerator.get('name')}"

    def sections(self):
        """Pairs of a type's name and what is told about it."""
        for name, pieces in self.public_types("class-decl").items():
            layout = [line for piece in pieces for line in self.layout(piece)]
            yield name, layout + list(self.operations(name, pieces))
        for name, pieces in self.public_types("enum-decl").items():
            yield name, [line for piece in pieces for line in self.enumerators(piece)]


def parse(xml):
    """Without debug information abidw knows symbols, but no types."""
    corpus = ElementTree.fromstring(xml)
    if corpus.find("abi-instr") is None:
        sys.exit("The library has no debug information.")
    return Library(corpus)


def main():
    library, headers = sys.argv[1:]
    for program, package in (("abidw", "abigail-tools"), ("c++filt", "binutils")):
        if not shutil.which(program):
            sys.exit(f"{program} is not installed; on Debian it is in the package {package}.")
    command = ["abidw", "--headers-dir", headers, "--drop-private-types", library]
    described = parse(subprocess.run(command, check=True, stdout=subprocess.PIPE).stdout)
    print(f"{described.corpus.get('soname')} for {described.corpus.get('architecture')}")
    print("\nExported symbols")
    for symbol in sorted(described.symbols()):
        print(f"    {symbol}")
    for name, lines in sorted(described.sections()):
        print(f"\n{name}")
        for line in dict.fromkeys(lines):  # each once
            print(f"    {line}")


if __name__ == "__main__":
    main()
