"""What the figures depend on besides the code: the machine, and how busy it is."""

import os
import pathlib
import platform
import re
import subprocess

BUSY = 0.5


def describe(build):
    """The machine before a measurement; the compiler is that of the build folder."""
    return {
        "processor": processor(),
        "CPUs": len(os.sched_getaffinity(0)),
        "load": round(os.getloadavg()[0], 2),
        "frequency governor": text_of("/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor"),
        "huge pages": selected(text_of("/sys/kernel/mm/transparent_hugepage/enabled")),
        "kernel": f"{platform.system()} {platform.release()}",
        "compiler": compiler(build),
    }


def processor():
    """Its name without the marks of a registered name; ARM has none in /proc/cpuinfo."""
    for line in text_of("/proc/cpuinfo").splitlines():
        if line.startswith("model name"):
            return re.sub(r"\(R\)|\(TM\)| CPU| @ .*", "", line.split(":")[1]).strip()
    return platform.machine()


def text_of(path):
    try:
        return pathlib.Path(path).read_text().strip()
    except OSError:
        return "not visible"


def selected(choices):
    """The word in brackets among the choices of a setting of the kernel."""
    return re.sub(r".*\[(.*)\].*", r"\1", choices)


def compiler(build):
    command = re.search(r"CMAKE_CXX_COMPILER:\w+=(.*)", text_of(build / "CMakeCache.txt"))
    if command is None:
        return "not visible"
    return subprocess.run([command[1], "--version"], capture_output=True, text=True).stdout.split("\n")[0]


def line(machine):
    return ", ".join(f"{what} {value}" for what, value in machine.items())


def warning(machine):
    """None when the machine is idle."""
    if machine["load"] <= BUSY:
        return None
    return f"WARNING: the load average is {machine['load']}, above {BUSY}: other work distorts the figures"
