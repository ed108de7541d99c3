"""Installs into a temporary folder, moves it, and builds and runs a host by find_package and by pkg-config."""

import argparse
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile

EXPORTS = {"DllCanUnloadNow", "DllGetClassObject", "DllRegisterServer", "DllUnregisterServer"}


def run(*command, **options):
    print("+", *command, flush=True)
    return subprocess.run([str(c) for c in command], check=True, text=True, **options)


def check_exports(library):
    symbols = run("nm", "--dynamic", "--defined-only", library, stdout=subprocess.PIPE).stdout
    names = {line.split()[-1].split("@")[0] for line in symbols.splitlines()}
    if names != EXPORTS:
        sys.exit(f"{library.name} exports {sorted(names)}, not just {sorted(EXPORTS)}")


def main():
    parser = argparse.ArgumentParser()
    for name in ("build", "cmake", "cxx", "flags", "libdir", "version"):
        parser.add_argument("--" + name, required=True)
    args = parser.parse_args()
    consumer = pathlib.Path(__file__).resolve().parent / "consumer"

    with tempfile.TemporaryDirectory(prefix="vex-install-") as temporary:
        top = pathlib.Path(temporary)
        run(args.cmake, "--install", args.build, "--prefix", top / "first", stdout=subprocess.DEVNULL)
        prefix = top / "moved"
        shutil.move(top / "first", prefix)

        libraries = prefix / args.libdir
        check_exports(libraries / "libvex.so")
        environment = {
            **os.environ,
            "PKG_CONFIG_PATH": str(libraries / "pkgconfig"),
            "LD_LIBRARY_PATH": str(libraries),
            "VEX_REGISTRY_DIR": str(top / "registry"),
        }

        run(args.cmake, "-G", "Ninja", "-S", consumer, "-B", top / "cmake", f"-DCMAKE_PREFIX_PATH={prefix}",
            f"-DCMAKE_CXX_COMPILER={args.cxx}", f"-DCMAKE_CXX_FLAGS={args.flags}",
            f"-DVEX_EXPECTED_VERSION={args.version}", "-DCMAKE_BUILD_TYPE=Release", stdout=subprocess.DEVNULL)
        run(args.cmake, "--build", top / "cmake")
        run(top / "cmake" / "consumer", env=environment)

        flags = run("pkg-config", "--cflags", "--libs", f"vex = {args.version}", env=environment,
                    stdout=subprocess.PIPE).stdout.split()
        program = top / "by_pkg_config"
        run(args.cxx, *args.flags.split(), "-std=c++20", consumer / "consumer.cpp", "-o", program, *flags)
        run(program, env=environment)

        installed = prefix / "bin" / "vex"
        if installed.exists():
            run(installed, "filters", env=environment, stdout=subprocess.DEVNULL)


if __name__ == "__main__":
    main()
