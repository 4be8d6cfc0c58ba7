#!/usr/bin/env python3
"""Idle cost of wrenfold-helper.

Starts the helper against a temporary home (plug-in bundle folder, empty
preferences) on a private session bus, waits for its launch, and then, in the
idle window before the next interval run (300 s away while the mail client
does not run), counts its wake-ups: the context switches of all its threads
(/proc/PID/task/*/status) and the time slices it ran (/proc/PID/task/*/schedstat).
A `sleep` process is measured the same way over the same window as the peer.
Also reports resident memory (VmRSS) after launch, next to the peer's.

usage: idle.py path/to/wrenfold-helper [window-seconds]
"""
import os
import shutil
import subprocess
import sys
import tempfile
import time


def thread_counters(pid):
    switches = 0
    slices = 0
    task_dir = f"/proc/{pid}/task"
    for tid in os.listdir(task_dir):
        try:
            with open(f"{task_dir}/{tid}/status") as f:
                for line in f:
                    if line.startswith(("voluntary_ctxt_switches", "nonvoluntary_ctxt_switches")):
                        switches += int(line.split()[1])
            with open(f"{task_dir}/{tid}/schedstat") as f:
                slices += int(f.read().split()[2])
        except FileNotFoundError:
            pass  # a thread that ended meanwhile
    return switches, slices


def rss_kib(pid):
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return 0


def ratio(a, b):
    if b == 0:
        return "equal (both 0)" if a == 0 else "n/a (peer 0)"
    return f"{a / b:.2f}"


def wait_for(proc_stderr_path, text, seconds):
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        with open(proc_stderr_path, errors="replace") as f:
            if text in f.read():
                return True
        time.sleep(0.05)  # polling a file the helper writes; nothing to await
    return False


def main():
    if len(sys.argv) < 2:
        print(__doc__)
        return 2
    helper = os.path.abspath(sys.argv[1])
    window = float(sys.argv[2]) if len(sys.argv) > 2 else 30.0
    home = tempfile.mkdtemp(prefix="wf-bench-idle-")
    bus = helper_proc = peer = None
    try:
        os.makedirs(f"{home}/Library/Mail/Bundles/Wrenfold.mailbundle")
        os.makedirs(f"{home}/Library/Preferences")
        bus = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address"],
                               stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        address = bus.stdout.readline().strip()
        env = dict(os.environ, HOME=home, XDG_CONFIG_HOME=f"{home}/.config",
                   XDG_DATA_HOME=f"{home}/.local/share", XDG_DATA_DIRS=f"{home}/share",
                   DBUS_SESSION_BUS_ADDRESS=address)
        err_path = f"{home}/helper.stderr"
        with open(err_path, "w") as err:
            helper_proc = subprocess.Popen([helper], env=env, stderr=err, stdout=subprocess.DEVNULL)
        peer = subprocess.Popen(["sleep", str(int(window) + 60)])
        if not wait_for(err_path, "External OpenMeta Scanning", 30):
            print("the helper did not launch:\n" + open(err_path).read())
            return 1
        time.sleep(1.0)  # let launch-time work settle before the window opens
        rss_helper = rss_kib(helper_proc.pid)
        rss_peer = rss_kib(peer.pid)
        h0, p0 = thread_counters(helper_proc.pid), thread_counters(peer.pid)
        time.sleep(window)  # the idle window itself
        h1, p1 = thread_counters(helper_proc.pid), thread_counters(peer.pid)
        hs, hr = h1[0] - h0[0], h1[1] - h0[1]
        ps, pr = p1[0] - p0[0], p1[1] - p0[1]
        threads = len(os.listdir(f"/proc/{helper_proc.pid}/task"))
        print(f"idle window: {window:.0f} s; helper threads: {threads} (GLib's own included)")
        print(f"context switches: helper {hs}, sleep {ps}, ratio {ratio(hs, ps)} "
              f"(helper {hs / window:.2f}/s)")
        print(f"time slices run:  helper {hr}, sleep {pr}, ratio {ratio(hr, pr)}")
        print(f"resident memory:  helper {rss_helper} KiB, sleep {rss_peer} KiB, "
              f"ratio {ratio(rss_helper, rss_peer)} (goal: helper under 8192 KiB: "
              f"{'met' if rss_helper < 8192 else 'NOT met'})")
        return 0
    finally:
        for p in (helper_proc, peer, bus):
            if p and p.poll() is None:
                p.terminate()
                p.wait()
        shutil.rmtree(home, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
