import os
import subprocess
import sys
import zipfile
from pathlib import Path

SOURCE = Path(__file__).resolve().parent.parent


def pip(*arguments):
    command = [sys.executable, "-m", "pip", *arguments]
    subprocess.run(command, check=True, capture_output=True, env={**os.environ, "PIP_NO_INDEX": "1"})


def test_pip_installs_from_the_checkout_without_a_network(tmp_path):
    pip("install", "--target", str(tmp_path), str(SOURCE))
    library = os.environ.get("ZB_LIBRARY") or SOURCE.parents[1] / "build" / "release" / "libzb.so.1"
    program = "import zb; print(zb.__file__, zb.Code.ErrOpen.value)"
    environment = {**os.environ, "PYTHONPATH": str(tmp_path), "ZB_LIBRARY": str(library)}
    told = subprocess.run([sys.executable, "-c", program], env=environment, cwd=tmp_path, capture_output=True, text=True)
    assert told.stdout.split() == [str(tmp_path / "zb" / "__init__.py"), "-46"], told.stderr


def test_a_wheel_holds_the_package_and_nothing_else(tmp_path):
    pip("wheel", "--wheel-dir", str(tmp_path), str(SOURCE))
    (wheel,) = tmp_path.iterdir()
    names = zipfile.ZipFile(wheel).namelist()
    package = sorted(path.name for path in (SOURCE / "zb").iterdir() if path.suffix == ".py") + ["py.typed"]
    assert sorted(name for name in names if name.startswith("zb/")) == sorted(f"zb/{name}" for name in package)
