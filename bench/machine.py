"""What the figures depend on besides the code: the machine, and how busy it is."""

import os
import pathlib
import platform
import re
import subprocess
import time

BUSY = 0.1


def describe(build):
    """The machine before a measurement; the compiler is that of the build folder."""
    return {
        "processor": processor(),
        "CPUs": len(os.sched_getaffinity(0)),
        "load": round(busy_processors(), 2),
        "frequency governor": text_of("/sys/devices/system/cpu/cpu0/cpufreq/scaling_governor"),
        "huge pages": selected(text_of("/sys/kernel/mm/transparent_hugepage/enabled")),
        "kernel": f"{platform.system()} {platform.release()}",
        "compiler": compiler(build),
    }


def busy_processors():
    """How many processors other work uses at present. The load average tells of the last minutes."""
    before, beforehand = idle_seconds(), time.monotonic()
    time.sleep(2)
    idle = (idle_seconds() - before) / (time.monotonic() - beforehand)
    return max(0.0, os.cpu_count() - idle)


def idle_seconds():
    """The sum of all processors, without the time in which they waited for a disk."""
    return float(text_of("/proc/uptime").split()[1])


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
    """None when the machine is idle, or nearly so."""
    if machine["load"] <= BUSY:
        return None
    return f"WARNING: other work uses {machine['load']} processors, which distorts the figures"
