"""Packs the package into a wheel: a zip of its files and three lists."""

import base64
import hashlib
import re
import tarfile
import zipfile
from pathlib import Path

HERE = Path(__file__).resolve().parent.parent
SUMMARY = "xBase data files, memos and indexes by libzb"


def version():
    """The one version of the whole project."""
    cmake = HERE.parent.parent / "CMakeLists.txt"
    if cmake.exists():
        return re.search(r"project\(zb VERSION ([\d.]+)", cmake.read_text())[1]
    return re.search(r"^Version: (.+)$", (HERE / "PKG-INFO").read_text(), re.M)[1]


def metadata():
    return (
        f"Metadata-Version: 2.1\nName: zb\nVersion: {version()}\nSummary: {SUMMARY}\nLicense: MIT\n"
        f"Requires-Python: >=3.9\nDescription-Content-Type: text/markdown\n\n"
        + (HERE / "README.md").read_text()
    )


def package_files():
    for path in sorted((HERE / "zb").iterdir()):
        if path.suffix == ".py" or path.name == "py.typed":
            yield f"zb/{path.name}", path.read_bytes()


def write_wheel(directory, files):
    name = f"zb-{version()}-py3-none-any.whl"
    info = f"zb-{version()}.dist-info"
    entries = [
        *files,
        (f"{info}/METADATA", metadata().encode()),
        (f"{info}/WHEEL", b"Wheel-Version: 1.0\nGenerator: zb\nRoot-Is-Purelib: true\nTag: py3-none-any\n"),
    ]
    record = ""
    with zipfile.ZipFile(Path(directory) / name, "w", zipfile.ZIP_DEFLATED) as wheel:
        for path, content in entries:
            digest = base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
            record += f"{path},sha256={digest},{len(content)}\n"
            wheel.writestr(path, content)
        wheel.writestr(f"{info}/RECORD", record + f"{info}/RECORD,,\n")
    return name


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    return write_wheel(wheel_directory, package_files())


def build_editable(wheel_directory, config_settings=None, metadata_directory=None):
    return write_wheel(wheel_directory, [("zb.pth", f"{HERE}\n".encode())])


def build_sdist(sdist_directory, config_settings=None):
    base = f"zb-{version()}"
    with tarfile.open(Path(sdist_directory) / f"{base}.tar.gz", "w:gz") as archive:
        for path in ("pyproject.toml", "README.md", "zb", "backend", "tests"):
            archive.add(HERE / path, f"{base}/{path}", filter=without_caches)
        facts = Path(sdist_directory) / "PKG-INFO"
        facts.write_text(metadata())
        archive.add(facts, f"{base}/PKG-INFO")
        facts.unlink()
    return f"{base}.tar.gz"


def without_caches(entry):
    return None if "__pycache__" in entry.name else entry
