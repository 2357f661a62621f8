"""Has CMake build the library and the extension module, for pip. Everything else stands in pyproject.toml."""

import os
import pathlib
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = pathlib.Path(__file__).resolve().parent
LEFT_OUT = ("TESTS", "EXAMPLES", "LOGGER", "TOOLS")


class BuildWithCMake(build_ext):
    """Puts the module and the library that it needs into the package's directory, side by side."""

    def build_extension(self, extension):
        target = pathlib.Path(self.get_ext_fullpath(extension.name)).resolve()
        build = pathlib.Path(self.build_temp).resolve()
        configure = ["cmake", "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=Release", "-DTNROBOT_BUILD_PYTHON=ON"]
        configure += [f"-DTNROBOT_BUILD_{part}=OFF" for part in LEFT_OUT]
        # Installed there, the module looks for the library beside itself.
        configure += ["-DTNROBOT_PYTHON_DIR=package", "-DCMAKE_INSTALL_LIBDIR=package/tnrobotkernel"]
        subprocess.run([*configure, f"-DPython3_EXECUTABLE={sys.executable}"], check=True)
        # Only what the package needs, and no more at once than there are processors.
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL") or str(len(os.sched_getaffinity(0)))
        subprocess.run(["cmake", "--build", build, "--parallel", jobs, "--target", "tnrobot_python"], check=True)
        subprocess.run(["cmake", "--install", build, "--component", "python", "--prefix", build / "staged"], check=True)
        (module,) = (build / "staged" / "package" / "tnrobotkernel").glob("_core.*.so")
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(module, target)
        library = (build / "src" / "libTnRobotKernel.so.1").resolve()
        shutil.copy2(library, target.parent / "libTnRobotKernel.so.1")


setup(ext_modules=[Extension("tnrobotkernel._core", sources=[])], cmdclass={"build_ext": BuildWithCMake})
