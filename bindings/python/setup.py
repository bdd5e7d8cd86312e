# SPDX-License-Identifier: Apache-2.0
"""Makes a wheel from the tree:

    python3 -m pip wheel --no-build-isolation --no-deps -w OUT bindings/python

CMake compiles the modules, so that there is one description of how. AAAUTIL_BUILD_DIR names a
build directory that exists; without it one is made in build/wheel. The wheel holds the package,
not the libraries of the AAA service: it uses those of the machine that it is installed on.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys

from setuptools import Distribution, setup
from setuptools.command.build_py import build_py

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
WORK = ROOT / "build/wheel" if "AAAUTIL_BUILD_DIR" not in os.environ else pathlib.Path(os.environ["AAAUTIL_BUILD_DIR"]) / "wheel"


def version():
    return re.search(r"project\(libaaautil VERSION ([0-9.]+)", (ROOT / "CMakeLists.txt").read_text()).group(1)


def run(*command):
    subprocess.run([str(word) for word in command], check=True)


def build_directory():
    given = os.environ.get("AAAUTIL_BUILD_DIR")
    if given:
        return pathlib.Path(given)
    directory = WORK / "cmake"
    run("cmake", "-S", ROOT, "-B", directory, "-DCMAKE_BUILD_TYPE=Release", "-DCMAKE_INSTALL_PREFIX=/usr", "-DAAA_PKG_ROOT=/usr/lib/aaa",
        "-DBUILD_TESTING=OFF", "-DAAA_BUILD_BENCH=OFF", "-DAAA_BUILD_EXAMPLES=OFF", "-DAAA_WERROR=OFF", f"-DAAA_PYTHON={sys.executable}")
    return directory


class Build(build_py):
    """Compiles and takes what CMake installs, without search paths of the build."""

    def run(self):
        directory = build_directory()
        # make compiles one file at a time unless it is told otherwise.
        jobs = [] if "CMAKE_BUILD_PARALLEL_LEVEL" in os.environ else ["--parallel", os.cpu_count() or 1]
        run("cmake", "--build", directory, *jobs, "--target", "python_package", "package_changelog")
        stage = WORK / "stage"
        shutil.rmtree(stage, ignore_errors=True)
        run("cmake", "--install", directory, "--component", "python", "--prefix", stage, "--strip")
        for source in (stage / "lib/python3/dist-packages").iterdir():
            if source.suffix != ".dist-info":  # made by the wheel itself
                copy = shutil.copytree if source.is_dir() else shutil.copy2
                copy(source, pathlib.Path(self.build_lib) / source.name)

    def get_outputs(self, include_bytecode=True):
        return [str(path) for path in pathlib.Path(self.build_lib).rglob("*") if path.is_file()]


class Compiled(Distribution):
    """It has modules that are compiled, although setuptools compiles none."""

    def has_ext_modules(self):
        return True


# What setuptools writes on its way goes there, not next to the sources.
shutil.rmtree(WORK / "setuptools", ignore_errors=True)
(WORK / "setuptools").mkdir(parents=True)

setup(
    name="aaautil",
    version=version(),
    description="Attribute lists, messages, database and client of the AAA service",
    license="Apache-2.0",
    python_requires=">=3.9",
    install_requires=["cffi>=1.15"],
    packages=["aaautil"],
    py_modules=["aaautil_pytest"],
    entry_points={"pytest11": ["aaautil = aaautil_pytest"]},
    cmdclass={"build_py": Build},
    distclass=Compiled,
    zip_safe=False,
    options={
        "bdist_wheel": {"py_limited_api": "cp39", "bdist_dir": str(WORK / "setuptools/wheel")},
        "build": {"build_base": str(WORK / "setuptools/build")},
        "egg_info": {"egg_base": str(WORK / "setuptools")},
    },
)
