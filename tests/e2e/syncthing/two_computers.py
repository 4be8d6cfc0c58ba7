#!/usr/bin/env python3
"""The road of one saved list across two computers, through a real sync engine.

Two simulated computers on one machine: two temporary homes, two private
session buses, two wrenfold-helper processes and two Syncthing instances that
share each home's sync folder with each other over loopback only. Computer A's
plug-in (a bus client) saves a list and announces it; A's helper pushes it into
A's sync folder; Syncthing carries it to B's sync folder (temporary file, then
rename); B's helper tells B's plug-in. B's local file is never touched.

Exit status: 0 passed, 1 failed, 77 skipped (with the reason printed).
"""
import hashlib
import json
import os
import secrets
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import threading
import time
import urllib.request
from datetime import datetime

HELPER = sys.argv[1] if len(sys.argv) > 1 else os.environ.get("WF_HELPER_BINARY", "")
SKIP = 77
FOLDER_ID = "wrenfold-settings"
DEADLINE = time.monotonic() + 170  # the whole test stays under three minutes

PLIST_HEAD = ('<?xml version="1.0" encoding="UTF-8"?>\n'
              '<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" '
              '"http://www.apple.com/DTDs/PropertyList-1.0.dtd">\n<plist version="1.0">\n')


def plist_array(*items):
    body = "".join("\t<string>%s</string>\n" % i for i in items)
    return PLIST_HEAD + "<array>\n" + body + "</array>\n</plist>\n"


def free_port():
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def sha(path):
    with open(path, "rb") as f:
        return hashlib.sha256(f.read()).hexdigest()


def remaining(limit):
    return max(0.1, min(limit, DEADLINE - time.monotonic()))


class Failure(Exception):
    pass


class LineReader:
    """Collects a process's output lines on a thread; waits are bounded."""

    def __init__(self, stream, name):
        self.lines = []
        self.name = name
        self.cond = threading.Condition()
        self.thread = threading.Thread(target=self._run, args=(stream,), daemon=True)
        self.thread.start()

    def _run(self, stream):
        for raw in iter(stream.readline, b""):
            line = raw.decode("utf-8", "replace").rstrip("\n")
            with self.cond:
                self.lines.append((time.time(), line))
                self.cond.notify_all()

    def wait_for(self, text, timeout, start=0):
        """Index and time of the first line from `start` on that contains text."""
        end = time.monotonic() + remaining(timeout)
        with self.cond:
            while True:
                for i in range(start, len(self.lines)):
                    if text in self.lines[i][1]:
                        return i, self.lines[i][0]
                left = end - time.monotonic()
                if left <= 0:
                    raise Failure("%s: no line with %r within %.0f s" % (self.name, text, timeout))
                self.cond.wait(left)

    def count(self, text, start=0):
        with self.cond:
            return sum(1 for _, l in self.lines[start:] if text in l)

    def __len__(self):
        with self.cond:
            return len(self.lines)


def log_time(line):
    """The wall time of an NSLog head 'YYYY-MM-DD HH:MM:SS.mmm wrenfold-helper[..]'."""
    try:
        return datetime.strptime(line[:23], "%Y-%m-%d %H:%M:%S.%f").timestamp()
    except ValueError:
        return None


class Computer:
    def __init__(self, name, root):
        self.name = name
        self.home = os.path.join(root, name)
        self.library = os.path.join(self.home, "Library")
        self.local = os.path.join(self.library, "Mail", "Ardel")
        self.sync = os.path.join(self.home, "SyncFolder")
        self.st_home = os.path.join(self.home, "syncthing")
        self.procs = []
        for d in (os.path.join(self.library, "Mail", "Bundles", "Wrenfold.mailbundle"),
                  os.path.join(self.library, "Preferences"), self.local, self.sync,
                  os.path.join(self.sync, ".stfolder"), os.path.join(self.home, ".config"),
                  os.path.join(self.home, ".local", "share")):
            os.makedirs(d, exist_ok=True)
        prefs = (PLIST_HEAD + "<dict>\n"
                 "\t<key>launchWrenfoldHelperAtLogin</key>\n\t<false/>\n"
                 "\t<key>logSettingsSync</key>\n\t<true/>\n"
                 "\t<key>settingsSyncMethod</key>\n\t<integer>2</integer>\n"
                 "\t<key>syncFolderPath</key>\n\t<string>%s</string>\n"
                 "</dict>\n</plist>\n") % self.sync
        with open(os.path.join(self.library, "Preferences", "org.ardel.Wrenfold.plist"), "w") as f:
            f.write(prefs)
        # The mail store is not watched here: this test is about settings.
        with open(os.path.join(self.library, "Preferences", "org.ardel.WrenfoldHelper.plist"), "w") as f:
            f.write(PLIST_HEAD + "<dict>\n\t<key>disableOpenMetaScanning</key>\n\t<true/>\n"
                    "\t<key>disableExternalProjectScanning</key>\n\t<true/>\n</dict>\n</plist>\n")
        self.env = dict(os.environ, HOME=self.home,
                        XDG_CONFIG_HOME=os.path.join(self.home, ".config"),
                        XDG_DATA_HOME=os.path.join(self.home, ".local", "share"),
                        XDG_DATA_DIRS=os.path.join(self.home, "no-system-data"))

    def spawn(self, args, **kw):
        p = subprocess.Popen(args, env=self.env, stdout=subprocess.PIPE,
                             stderr=subprocess.STDOUT, stdin=subprocess.DEVNULL, **kw)
        self.procs.append(p)
        return p

    def start_bus(self):
        p = subprocess.Popen(["dbus-daemon", "--session", "--nofork", "--print-address=1"],
                             env=self.env, stdout=subprocess.PIPE, stdin=subprocess.DEVNULL)
        self.procs.append(p)
        address = p.stdout.readline().decode().strip()
        if not address:
            raise Failure("%s: dbus-daemon printed no address" % self.name)
        self.env["DBUS_SESSION_BUS_ADDRESS"] = address

    def start_monitor(self):
        # The plug-in's stand-in: a real bus client that sees what the helper posts.
        p = self.spawn(["dbus-monitor", "--session", "type='signal',interface='org.ardel.Wrenfold'",
                        "type='signal',interface='org.freedesktop.DBus.Properties',"
                        "member='PropertiesChanged',path='/org/ardel/WrenfoldHelper'"])
        self.monitor = LineReader(p.stdout, self.name + " bus")
        self.probe()

    def probe(self):
        """Returns once every signal sent before it has reached the monitor.
        A new dbus-monitor may not yet be a monitor when the first probe is
        sent, so a probe not seen within half a second is sent again."""
        end = time.monotonic() + remaining(10)
        while True:
            mark = len(self.monitor)
            self.post("WrenfoldTestProbe")
            try:
                self.monitor.wait_for("member=WrenfoldTestProbe", 0.5, mark)
                return
            except Failure:
                if time.monotonic() > end:
                    raise Failure("%s: the bus monitor saw no probe within 10 s" % self.name)

    def start_helper(self):
        mark = len(self.monitor)
        p = self.spawn([HELPER])
        self.helper = LineReader(p.stdout, self.name + " helper")
        self.helper_proc = p
        # The helper says it has launched (its property Launched turns true)
        # once it observes the plug-in's notices.
        self.helper.wait_for("WrenfoldHelper", 15)
        self.monitor.wait_for("member=PropertiesChanged", 15, mark)

    def post(self, name):
        subprocess.run(["gdbus", "emit", "--session", "--object-path", "/org/ardel/Wrenfold",
                        "--signal", "org.ardel.Wrenfold." + name],
                       env=self.env, check=True, timeout=10, stdout=subprocess.DEVNULL)
        return time.time()

    def generate_syncthing(self):
        out = subprocess.run(["syncthing", "generate", "--home=" + self.st_home,
                              "--no-default-folder", "--skip-port-probing"],
                             env=self.env, capture_output=True, text=True, timeout=60)
        for line in (out.stdout + out.stderr).splitlines():
            if "Device ID:" in line:
                self.device_id = line.split("Device ID:")[1].strip()
                break
        else:
            raise Failure("%s: syncthing generate gave no device ID:\n%s" % (self.name, out.stderr))
        self.gui_port = free_port()
        self.listen_port = free_port()
        self.api_key = secrets.token_urlsafe(24)

    def write_syncthing_config(self, peer):
        # maxConflicts is spelt out: a configuration written without it keeps
        # no conflict copies at all (Syncthing 1.19), and the losing change of
        # step 4 would simply be overwritten. Loopback only: no discovery, no relays, no NAT traversal, no usage
        # reporting, no upgrades, no crash reports.
        config = """<configuration version="36">
    <folder id="{fid}" label="Wrenfold settings" path="{path}" type="sendreceive" rescanIntervalS="3600" fsWatcherEnabled="true" fsWatcherDelayS="1" ignorePerms="false" autoNormalize="true">
        <filesystemType>basic</filesystemType>
        <device id="{me}"></device>
        <device id="{peer}"></device>
        <minDiskFree unit="%">0</minDiskFree>
        <maxConflicts>10</maxConflicts>
    </folder>
    <device id="{me}" name="{name}" compression="metadata">
        <address>dynamic</address>
    </device>
    <device id="{peer}" name="{peer_name}" compression="metadata">
        <address>tcp://127.0.0.1:{peer_port}</address>
    </device>
    <gui enabled="true" tls="false">
        <address>127.0.0.1:{gui}</address>
        <apikey>{key}</apikey>
    </gui>
    <options>
        <listenAddress>tcp://127.0.0.1:{listen}</listenAddress>
        <globalAnnounceEnabled>false</globalAnnounceEnabled>
        <localAnnounceEnabled>false</localAnnounceEnabled>
        <relaysEnabled>false</relaysEnabled>
        <natEnabled>false</natEnabled>
        <startBrowser>false</startBrowser>
        <urAccepted>-1</urAccepted>
        <autoUpgradeIntervalH>0</autoUpgradeIntervalH>
        <crashReportingEnabled>false</crashReportingEnabled>
        <reconnectionIntervalS>1</reconnectionIntervalS>
        <minHomeDiskFree unit="%">0</minHomeDiskFree>
        <stunKeepaliveStartS>0</stunKeepaliveStartS>
    </options>
</configuration>
""".format(fid=FOLDER_ID, path=self.sync, me=self.device_id, peer=peer.device_id,
           name=self.name, peer_name=peer.name, peer_port=peer.listen_port,
           gui=self.gui_port, key=self.api_key, listen=self.listen_port)
        with open(os.path.join(self.st_home, "config.xml"), "w") as f:
            f.write(config)

    def start_syncthing(self):
        env = dict(self.env, STNOUPGRADE="1", STNODEFAULTFOLDER="1", STNORESTART="1")
        p = subprocess.Popen(["syncthing", "serve", "--home=" + self.st_home, "--no-browser",
                              "--no-restart", "--no-upgrade", "--logflags=0"],
                             env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                             stdin=subprocess.DEVNULL)
        self.procs.append(p)
        self.syncthing = LineReader(p.stdout, self.name + " syncthing")

    def rest(self, path, method="GET"):
        req = urllib.request.Request("http://127.0.0.1:%d%s" % (self.gui_port, path),
                                     headers={"X-API-Key": self.api_key}, method=method)
        with urllib.request.urlopen(req, timeout=5) as r:
            body = r.read().decode()
            return json.loads(body) if body.strip() else None

    def in_sync_with(self, peer):
        """Whether this instance is idle and holds everything the peer announced."""
        try:
            state = self.rest("/rest/db/status?folder=" + FOLDER_ID).get("state")
            done = self.rest("/rest/db/completion?folder=%s&device=%s"
                             % (FOLDER_ID, peer.device_id)).get("completion")
            return state == "idle" and done == 100
        except Exception:  # the REST server answers once the folder has started
            return False

    def scan(self):
        self.rest("/rest/db/scan?folder=" + FOLDER_ID, method="POST")

    def pause(self, peer):
        self.rest("/rest/system/pause?device=" + peer.device_id, method="POST")

    def resume(self, peer):
        self.rest("/rest/system/resume?device=" + peer.device_id, method="POST")

    def wait_indexed(self, name, content, timeout):
        """Waits until this instance's index holds `name` as it is now on disk
        (its size): a change not yet scanned would meet the peer's unseen."""
        end = time.monotonic() + remaining(timeout)
        while True:
            try:
                local = self.rest("/rest/db/file?folder=%s&file=%s" % (FOLDER_ID, name))["local"]
                if local.get("size") == len(content.encode()) and not local.get("deleted"):
                    return
            except Exception:
                pass
            if time.monotonic() > end:
                raise Failure("%s: Syncthing did not index %s within %.0f s"
                              % (self.name, name, timeout))
            with self.syncthing.cond:
                self.syncthing.cond.wait(0.25)

    def wait_disconnected(self, peer, timeout):
        end = time.monotonic() + remaining(timeout)
        while True:
            try:
                conns = self.rest("/rest/system/connections")["connections"]
                if not conns.get(peer.device_id, {}).get("connected"):
                    return
            except Exception:
                pass
            if time.monotonic() > end:
                raise Failure("%s: still connected to %s after pausing it" % (self.name, peer.name))
            with self.syncthing.cond:
                self.syncthing.cond.wait(0.25)

    def wait_connected(self, peer, timeout):
        end = time.monotonic() + remaining(timeout)
        last = None
        while time.monotonic() < end:
            try:
                conns = self.rest("/rest/system/connections")["connections"]
                if conns.get(peer.device_id, {}).get("connected"):
                    return
            except Exception as e:  # the REST server may not be up yet
                last = e
            self.syncthing.cond.acquire()
            self.syncthing.cond.wait(0.25)  # woken early by any Syncthing output
            self.syncthing.cond.release()
        raise Failure("%s: Syncthing did not connect to %s (%s)" % (self.name, peer.name, last))

    def stop(self):
        for p in reversed(self.procs):
            if p.poll() is None:
                p.send_signal(signal.SIGTERM)
        for p in reversed(self.procs):
            try:
                p.wait(timeout=10)
            except subprocess.TimeoutExpired:
                p.kill()
                p.wait(timeout=5)


def wait_until(condition, timeout, what, reader):
    """Waits until condition() holds; woken by the reader's output or every 50 ms."""
    end = time.monotonic() + remaining(timeout)
    while not condition():
        if time.monotonic() > end:
            raise Failure("waited %.0f s for %s" % (timeout, what))
        with reader.cond:
            reader.cond.wait(0.05)


def holds(path, content):
    try:
        with open(path) as f:
            return f.read() == content
    except OSError:
        return False


def wait_file(path, content, timeout, sender, receiver):
    """Waits until `path` on the receiver holds `content`. Syncthing's own
    watcher normally carries the change within seconds; should it miss the
    change, the sender is asked to rescan once, and the test says so."""
    try:
        wait_until(lambda: holds(path, content), min(timeout, 15), path, receiver.syncthing)
    except Failure:
        print("Syncthing on %s had not sent the change after 15 s: asking it to rescan"
              % sender.name)
        sender.scan()
        wait_until(lambda: holds(path, content), timeout, path + " to hold the expected content",
                   receiver.syncthing)
    return time.time()


def main():
    if not HELPER or not os.access(HELPER, os.X_OK):
        print("SKIP: the wrenfold-helper binary was not given")
        return SKIP
    if shutil.which("syncthing") is None:
        print("SKIP: Syncthing is not installed (Debian package 'syncthing'); "
              "scripts/install-deps installs it")
        return SKIP
    for tool in ("dbus-daemon", "dbus-monitor", "gdbus"):
        if shutil.which(tool) is None:
            print("SKIP: %s is not installed" % tool)
            return SKIP

    root = tempfile.mkdtemp(prefix="wf-two-computers-")
    step = "0, setting up"
    a, b = Computer("A", root), Computer("B", root)
    try:
        # Both sync folders start with the same copies: the helper never
        # pushes a list that the sync folder does not hold yet.
        v1 = plist_array("Work", "Home")
        s1 = plist_array("Inbox")
        for c in (a, b):
            for folder in (c.local, c.sync):
                with open(os.path.join(folder, "WrenfoldKeywords.plist"), "w") as f:
                    f.write(v1)
                with open(os.path.join(folder, "WrenfoldSmartMailboxes.plist"), "w") as f:
                    f.write(s1)

        for c in (a, b):
            c.generate_syncthing()
        a.write_syncthing_config(b)
        b.write_syncthing_config(a)
        for c in (a, b):
            c.start_bus()
            c.start_monitor()
            c.start_helper()
            c.start_syncthing()
        t_connect = time.time()
        a.wait_connected(b, 60)
        b.wait_connected(a, 60)
        print("Syncthing instances connected in %.1f s" % (time.time() - t_connect))
        # Their first exchange of indexes must be over before the first save:
        # a save during it races Syncthing's own start, not the helpers.
        wait_until(lambda: a.in_sync_with(b) and b.in_sync_with(a), 30,
                   "the two Syncthing instances to be idle and in sync", a.syncthing)
        print("Syncthing instances in sync %.1f s after connecting" % (time.time() - t_connect))

        # 1. A saves its keyword list; B is told.
        step = "1, keywords from A to B"
        b_local_kw = os.path.join(b.local, "WrenfoldKeywords.plist")
        b_local_before = sha(b_local_kw)
        v2 = plist_array("Work", "Home", "Travel")
        with open(os.path.join(a.local, "WrenfoldKeywords.plist"), "w") as f:
            f.write(v2)
        mark_a, mark_b, mark_bm = len(a.helper), len(b.helper), len(b.monitor)
        t_save = a.post("WrenfoldKeywordListWasSaved")
        i, _ = a.helper.wait_for("copy success", 10, mark_a)
        t_push = log_time(a.helper.lines[i][1]) or time.time()
        t_arrive = wait_file(os.path.join(b.sync, "WrenfoldKeywords.plist"), v2, 60, a, b)
        _, t_signal = b.monitor.wait_for("member=WrenfoldHelperDidUpdateKeywordsFile", 30,
                                         mark_bm)
        i, _ = b.helper.wait_for("Sync Folder Item did Change calledBack", 5, mark_b)
        t_callback = log_time(b.helper.lines[i][1]) or t_signal
        if sha(b_local_kw) != b_local_before:
            raise Failure("B's local keyword list was modified by the helper")
        if a.monitor.count("WrenfoldHelperDidUpdateKeywordsFile"):
            raise Failure("A's helper announced its own push")
        total = t_signal - t_save
        print("keywords A -> B: %.2f s from the save signal on A to the update signal on B" % total)
        print("  helper A (save signal to pushed copy):        %.2f s" % max(0.0, t_push - t_save))
        print("  Syncthing (pushed copy on A to file on B):    %.2f s" % (t_arrive - t_push))
        print("  helper B (file on B to update signal, incl. its 1 s latency): %.2f s" % (t_signal - t_arrive))
        print("  (B's watcher called back %.2f s after the file arrived)" % (t_callback - t_arrive))
        print("  helpers' share %.0f%%, Syncthing's share %.0f%%" % (
            100 * ((t_push - t_save) + (t_signal - t_arrive)) / total,
            100 * (t_arrive - t_push) / total))

        # 2. The other direction: B saves its smart mailboxes; A is told.
        step = "2, smart mailboxes from B to A"
        a_local_smb = os.path.join(a.local, "WrenfoldSmartMailboxes.plist")
        a_local_before = sha(a_local_smb)
        s2 = plist_array("Inbox", "Flagged")
        with open(os.path.join(b.local, "WrenfoldSmartMailboxes.plist"), "w") as f:
            f.write(s2)
        mark_am = len(a.monitor)
        t_save = b.post("WrenfoldSmartMailboxesWereSaved")
        _, t_signal = a.monitor.wait_for("member=WrenfoldHelperDidUpdateSmartMailboxesFile", 60,
                                         mark_am)
        print("smart mailboxes B -> A: %.2f s" % (t_signal - t_save))
        if sha(a_local_smb) != a_local_before:
            raise Failure("A's local smart-mailbox list was modified by the helper")

        # 3. Bytes that arrive equal to B's local file: nothing is posted.
        step = "3, equal bytes arriving on B"
        v3 = plist_array("Work", "Home", "Travel", "Family")
        with open(b_local_kw, "w") as f:  # B's plug-in already has v3
            f.write(v3)
        b_local_before = sha(b_local_kw)
        # Count only once every signal B's helper sent before this step has arrived.
        b.probe()
        posted_before = b.monitor.count("member=WrenfoldHelperDidUpdateKeywordsFile")
        mark_b = len(b.helper)
        with open(os.path.join(a.local, "WrenfoldKeywords.plist"), "w") as f:
            f.write(v3)
        a.post("WrenfoldKeywordListWasSaved")
        wait_file(os.path.join(b.sync, "WrenfoldKeywords.plist"), v3, 60, a, b)
        b.helper.wait_for("source and target files are identical! WrenfoldKeywords.plist", 10, mark_b)
        # The monitor is a separate process: let any signal already sent reach it.
        b.probe()
        if b.monitor.count("member=WrenfoldHelperDidUpdateKeywordsFile") != posted_before:
            raise Failure("B's helper announced a file equal to its local copy")
        if sha(b_local_kw) != b_local_before:
            raise Failure("B's local keyword list was modified by the helper")
        print("equal bytes on B: nothing posted")

        # 4. Both computers change the keyword list while apart. When they meet
        # again Syncthing keeps the older change as a conflict copy on the
        # computer that made it; that computer's helper reports the copy and
        # announces the list that won, never the copy.
        step = "4, keywords changed on both computers while apart"
        for c, peer in ((a, b), (b, a)):
            c.pause(peer)
        a.wait_disconnected(b, 30)
        b.wait_disconnected(a, 30)
        v_lost = plist_array("Work", "Home", "Travel", "Family", "Garden")
        v_won = plist_array("Work", "Home", "Travel", "Family", "Music")
        mark_a = len(a.helper)
        with open(os.path.join(a.local, "WrenfoldKeywords.plist"), "w") as f:
            f.write(v_lost)
        a.post("WrenfoldKeywordListWasSaved")
        a.helper.wait_for("copy success", 10, mark_a)
        a_sync_kw = os.path.join(a.sync, "WrenfoldKeywords.plist")
        # A's change is the older one by a clear margin, so Syncthing's choice
        # of winner (the newer modification time) does not hang on milliseconds.
        past = time.time() - 60
        os.utime(a_sync_kw, (past, past))
        mark_b = len(b.helper)
        with open(b_local_kw, "w") as f:
            f.write(v_won)
        b.post("WrenfoldKeywordListWasSaved")
        b.helper.wait_for("copy success", 10, mark_b)
        # Each engine has indexed its own change before they meet again.
        a.scan()
        b.scan()
        a.wait_indexed("WrenfoldKeywords.plist", v_lost, 30)
        b.wait_indexed("WrenfoldKeywords.plist", v_won, 30)
        a_local_kw = os.path.join(a.local, "WrenfoldKeywords.plist")
        a_local_before = sha(a_local_kw)
        mark_a, mark_am = len(a.helper), len(a.monitor)
        t_resume = time.time()
        for c, peer in ((a, b), (b, a)):
            c.resume(peer)
        i, t_conflict = a.helper.wait_for("Conflict copy ", 60, mark_a)
        line = a.helper.lines[i][1]
        if "WrenfoldKeywords.sync-conflict-" not in line or " of WrenfoldKeywords.plist " not in line \
                or "(made by Syncthing)" not in line:
            raise Failure("A's conflict line does not name the copy, its list and the engine: "
                          + line)
        copies = [n for n in os.listdir(a.sync) if n.startswith("WrenfoldKeywords.sync-conflict-")]
        if len(copies) != 1 or not holds(os.path.join(a.sync, copies[0]), v_lost):
            raise Failure("A's sync folder should hold one conflict copy with A's change: %s"
                          % copies)
        wait_until(lambda: holds(a_sync_kw, v_won), 30, "B's list in A's sync folder", a.syncthing)
        a.monitor.wait_for("member=WrenfoldHelperDidUpdateKeywordsFile", 30, mark_am)
        if a.helper.count("Conflict copy ", mark_a) != 1:
            raise Failure("A's helper reported the conflict copy more than once")
        if sha(a_local_kw) != a_local_before:
            raise Failure("A's local keyword list was modified by the helper")
        print("keywords changed on both computers while apart: the conflict copy %s reported "
              "on A %.2f s after the engines met again" % (copies[0], t_conflict - t_resume))
        for c in (a, b):
            if c.helper_proc.poll() is not None:
                raise Failure("%s's helper ended (status %s)" % (c.name, c.helper_proc.returncode))
        print("1 passed, 0 failed")
        return 0
    except Failure as e:
        print("FAILED in step %s: %s" % (step, e))
        for c in (a, b):
            for reader in ("helper", "syncthing", "monitor"):
                r = getattr(c, reader, None)
                if r:
                    print("---- %s %s (last lines)" % (c.name, reader))
                    for t, l in r.lines[-60:]:
                        print("%.3f %s" % (t, l))
        print("0 passed, 1 failed")
        return 1
    finally:
        a.stop()
        b.stop()
        shutil.rmtree(root, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
