"""Checks on the built library and the source tree; `check.py <check> <arguments>`, see each function."""

import ctypes
import re
import subprocess
import sys
import tempfile
from pathlib import Path

MOST_BYTES = 256 * 1024
SYSTEM_LIBRARIES = {"libc.so.6", "libm.so.6", "ld-linux-x86-64.so.2", "ld-linux-aarch64.so.1", "ld-linux-armhf.so.3",
                    "ld64.so.1", "KERNEL32.dll", "msvcrt.dll"}

# The folders of src from the bottom up: a file uses its own layer and layers of lower rank, so siblings of one rank
# (coding and dsp, tx and decode) never use each other.
RANKS = {layer: rank for rank, layers in enumerate((
    "platform", "log", "math", "config", "coding dsp", "sync", "tx decode", "second_look", "cancel combine", "receive",
    "modem", "api"))
    for layer in layers.split()}
# Headers without a layer: the mark of what is exported, the record of a modem's parts, which all stages read, and the
# list of all headers.
SHARED = {"export", "context", "core"}


def run(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def differences(left, right):
    """Complaints about what is only in one of two sets, given as (description, set)."""
    return [f"only {name}: {item}" for (name, these), (_, others) in ((left, right), (right, left))
            for item in sorted(these - others)]


def map_names(map_file):
    """The names that a version script lists, as name@@NODE."""
    text = re.sub(r"#.*", "", Path(map_file).read_text())
    return {f"{name}@@{node}" for node, names in re.findall(r"(\w+)\s*\{\s*global:(.*?)(?:local:.*?)?\}", text, re.S)
            for name in re.findall(r"\w+", names)}


def exported(readelf, library, map_file):
    """readelf, library, version script: the library exports the names of the script, in their nodes. Of a DLL, which
    has no nodes, objdump tells the names."""
    if str(library).endswith(".dll"):
        table = run(readelf, "-p", library).split("[Ordinal/Name Pointer] Table")[1].split("\n\n")[0]
        names = set(re.findall(r"^\s*\[ *\d+\].*?(\w+)$", table, re.M))
        return differences(("exported", names), ("in the map", {name.split("@")[0] for name in map_names(map_file)}))
    rows = [line.split() for line in run(readelf, "--dyn-syms", "--wide", library).splitlines()]
    names = {row[7] for row in rows if len(row) >= 8 and row[0][0].isdigit() and row[3] != "SECTION" and
             row[6] not in ("UND", "ABS")}
    return differences(("exported", names), ("in the map", map_names(map_file)))


def declared(include, map_file):
    """include folder, version script: the headers mark with KOSC_API exactly the names of the script; the host
    calls, ko_soundcommu_..., and log_level are in its first node."""
    names = set()
    for header in Path(include).glob("kosc/*.h"):
        text = re.sub(r"/\*.*?\*/|^#.*?$", "", header.read_text(), flags=re.S | re.M)
        for declaration in re.findall(r"KOSC_API\b([^;]*);", text):
            name = re.findall(r"\w+", declaration.split("(")[0].split("[")[0])[-1]
            for_hosts = name.startswith("ko_soundcommu_") or name == "log_level"
            names.add(name + ("@@KOSC_1" if for_hosts else "@@KOSC_CORE_1"))
    return differences(("declared", names), ("in the map", map_names(map_file)))


def needed(readelf, library):
    """readelf, library: it loads nothing but the C library and its mathematics. Of a DLL, objdump tells."""
    if str(library).endswith(".dll"):
        names = set(re.findall(r"DLL Name: (\S+)", run(readelf, "-p", library)))
    else:
        names = set(re.findall(r"\(NEEDED\).*\[(.*)\]", run(readelf, "--dynamic", library)))
    return [f"needs {name}" for name in sorted(names - SYSTEM_LIBRARIES)] + ([] if names else ["no NEEDED entry read"])



def take_snapshot(library, include, snapshot):
    """library with debug information, include folder, snapshot: writes it, with nothing of this machine in it."""
    text = run("abidw", "--exported-interfaces-only", "--drop-private-types", "--headers-dir", include, "--no-show-locs",
               "--no-corpus-path", "--no-comp-dir-path", "--no-elf-needed", "--drop-undefined-syms",
               "--no-parameter-names", library)
    Path(snapshot).write_text(re.sub(r" path='[^']*/(src/[^']*)'", r" path='\1'", text))
    return []


def interface(library, include, snapshot):
    """library with debug information, include folder, snapshot: functions and records are those of the snapshot, which
    is that of the version's first two numbers."""
    how = "then `cmake --build BUILD --target abi_snapshot` and commit what it writes"
    if not Path(snapshot).exists():
        return [f"no {snapshot} yet: check the version, {how}"]
    with tempfile.NamedTemporaryFile(suffix=".abi") as current:
        take_snapshot(library, include, current.name)
        result = subprocess.run(["abidiff", "--harmless", snapshot, current.name], capture_output=True, text=True)
    return [] if result.returncode == 0 else [result.stdout + result.stderr,
                                              f"The interface has changed: raise the version in CMakeLists.txt, {how}"]


def size(strip, library):
    """strip, library: it is small once stripped."""
    with tempfile.NamedTemporaryFile() as stripped:
        run(strip, "-o", stripped.name, library)
        count = Path(stripped.name).stat().st_size
    return [f"{count} bytes stripped, {MOST_BYTES} allowed"] if count >= MOST_BYTES else []


def upward(own, other):
    return own not in RANKS or other not in RANKS or (other != own and RANKS[other] >= RANKS[own])


def includes(root):
    """source tree: includes in src and include point downwards only."""
    homes = {path.stem: path.parent.name for path in Path(root, "src").rglob("*.cpp")}
    homes["handle"] = homes["kosc"] = "api"

    def layer(path):
        return homes.get(path.stem, "") if path.parent.name == "kosc" else path.parent.name

    complaints, seen = [], 0
    for path in [*Path(root, "src").rglob("*.*"), *Path(root, "include").rglob("*.h")]:
        public = path.parent.name == "kosc"
        for target in re.findall(r'^\s*#\s*include\s+"([^"]+)"', path.read_text(), re.M):
            target = path.parent / target if "/" not in target else Path(target)
            seen += 1
            if (target.parent.name == "kosc" and target.stem in SHARED) or (public and path.stem in SHARED):
                continue
            if upward(layer(path), layer(target)):
                complaints.append(f"{path}: {layer(path) or 'no layer'} includes {target} of {layer(target) or 'no layer'}")
    return complaints if seen else ["no include found"]


def symbols(nm, *objects):
    """nm, object files: functions and variables are used downwards only, whichever header declares them."""
    homes, uses = {}, []
    for path in map(Path, objects):
        layer = path.parent.name
        for row in run(nm, "--format=posix", path).splitlines():
            name, kind = row.split()[:2]
            if kind == "U":
                uses.append((layer, name, path))
            elif kind in "TDBRV":
                homes[name] = layer
    return [f"{path}: {layer} uses {name} of {homes[name]}" for layer, name, path in uses
            if name in homes and upward(layer, homes[name])] if homes and uses else ["no symbol read"]


def asked(nm, list_file, *objects):
    """nm, list of names, object files: what they ask of the system is on the list."""
    allowed = set(re.sub(r"#.*", "", Path(list_file).read_text()).split())
    rows = [row.split() for row in run(nm, "--format=posix", *objects).splitlines() if " " in row]
    own = {name for name, kind, *_ in rows if kind not in "Uw"}
    names = {name for name, kind, *_ in rows if kind in "Uw"} - own
    return [f"asks for {name}" for name in sorted(names - allowed)] if names else ["no symbol read"]


def export_lists(cmake, script, map_file, folder):
    """cmake, its script, version script, folder: the lists for Apple's and Windows' linkers have the names of the
    version script; variables are marked for Windows."""
    names, lists = {name.split("@")[0] for name in map_names(map_file)}, {}
    for kind in ("apple", "windows"):
        path = Path(folder, f"{kind}.exports")
        run(cmake, f"-DKIND={kind}", f"-DMAP={map_file}", f"-DLIST={path}", "-P", script)
        lists[kind] = set(path.read_text().splitlines())
    variables = {"log_level", "POLY", "HOLE"}
    expected = {"EXPORTS"} | {f"    {name}{' DATA' if name in variables else ''}" for name in names}
    return (differences(("in Apple's list", lists["apple"]), ("in the map", {f"_{name}" for name in names})) +
            differences(("in the module definition", lists["windows"]), ("in the map", expected)))


def readme(readme_file, *examples):
    """README, examples: the README shows the examples as they are."""
    blocks = re.findall(r"^```c(?:pp)?\n(.*?)^```$", Path(readme_file).read_text(), re.S | re.M)
    return [f"no block of {readme_file} equals {example}" for example in examples
            if Path(example).read_text() not in blocks]


def frames(*libraries):
    """two builds of the library: they encode messages into the same samples."""
    messages = [bytes(28), bytes([255] * 28), bytes(range(28)), b"two builds, one sound".ljust(28, b"\0")]
    messages += [bytes((97 * i * i + 31 * k) % 256 for k in range(28)) for i in range(1, 60)]
    results = []
    for path in libraries:
        library = ctypes.CDLL(path)
        ctypes.c_uint32.in_dll(library, "log_level").value = 0
        library.ko_soundcommu_init.restype = ctypes.c_void_p
        ignore = ctypes.CFUNCTYPE(None, ctypes.c_void_p, ctypes.c_uint32)(lambda results, count: None)
        modem = ctypes.c_void_p(library.ko_soundcommu_init(ignore, ignore))
        frame = ctypes.create_string_buffer(23040)
        results.append([(library.ko_soundcommu_encode(modem, m, 28, frame, 23040), frame.raw) for m in messages])
        library.ko_soundcommu_release(modem)
    return [f"frames of {m.hex()} differ or failed" for m, one, other in zip(messages, *results)
            if one != other or one[0] != 0]


if __name__ == "__main__":
    CHECKS = {check.__name__: check for check in (exported, declared, needed, interface, take_snapshot, size, includes,
                                              symbols, asked, export_lists, readme, frames)}
    sys.exit("\n".join(CHECKS[sys.argv[1]](*sys.argv[2:])) or 0)
