#!/usr/bin/python3
# SPDX-FileCopyrightText: The hoist authors
# SPDX-License-Identifier: Apache-2.0
"""What the units promise, on a machine that has booted with them (scripts/boot-test.sh)."""

import json
import os
import pathlib
import pwd
import signal
import socket
import stat
import subprocess
import time
import unittest

SERVICE = "com.kelvo.hoist"
SOCKET = pathlib.Path("/run/kelvo") / SERVICE
UNITS = (f"{SERVICE}.socket", f"{SERVICE}.service")
# A signed one, set-user-ID for the user "nobody" (scripts/boot-test.sh).
HELPER = "/tests/helper/KelvoHelper.app"
DROP_IN = pathlib.Path(f"/run/systemd/system/{SERVICE}.service.d/broken.conf")


def run(*command, user=None):
    return subprocess.run(command, capture_output=True, text=True, timeout=60, check=False, user=user)


def show(unit, name):
    return run("systemctl", "show", "--property", name, "--value", unit).stdout.strip()


def main_process():
    return int(show(f"{SERVICE}.service", "MainPID"))


def version(user="nobody"):
    """One call, on a new connection, through a program that knows nothing of the hoist."""
    return run("gdbus", "call", "--address", f"unix:path={SOCKET}", "--dest", SERVICE, "--object-path", "/",
               "--method", "com.kelvo.KLComponentInstalling.queryComponentVersionWithReply_", user=user)


class Units(unittest.TestCase):
    def wait_until(self, condition, what):
        deadline = time.monotonic() + 30
        while not condition():
            self.assertLess(time.monotonic(), deadline, f"waited for: {what}")
            time.sleep(0.01)  # the service manager tells nobody

    def wait_for_end(self):
        self.wait_until(lambda: show(f"{SERVICE}.service", "ActiveState") in ("inactive", "failed"),
                        "the end of the hoist")

    def setUp(self):
        run("systemctl", "stop", f"{SERVICE}.service")
        run("systemctl", "reset-failed", f"{SERVICE}.service")

    def answered(self, user="nobody"):
        result = version(user)
        self.assertIn("'Hoisting-2.2.5.12'", result.stdout, result.stderr)

    def quit_by_itself(self):
        """Ends the hoist as its idle timer does, with exit(0), a quarter of an hour early."""
        process = main_process()
        run("gdb", "--batch", "--nx", "-p", str(process), "-ex", "call (void)exit(0)")
        self.wait_for_end()

    def test_the_socket_is_there_for_everybody_before_any_hoist(self):
        self.assertEqual(show(f"{SERVICE}.socket", "ActiveState"), "active")
        self.assertEqual(main_process(), 0)
        about = SOCKET.stat()
        self.assertTrue(stat.S_ISSOCK(about.st_mode))
        self.assertEqual((stat.S_IMODE(about.st_mode), about.st_uid), (0o666, 0))
        self.assertEqual(stat.S_IMODE(SOCKET.parent.stat().st_mode), 0o755)

    def test_the_first_connection_starts_the_hoist_and_the_next_finds_it(self):
        self.answered()
        first = main_process()
        self.assertNotEqual(first, 0)
        self.assertEqual(show(f"{SERVICE}.service", "SubState"), "running")
        self.answered("root")
        self.assertEqual(main_process(), first)

    def test_after_it_has_quit_it_stays_away_until_the_next_connection(self):
        self.answered()
        first = main_process()
        self.quit_by_itself()
        self.assertEqual(show(f"{SERVICE}.service", "Result"), "success")
        self.assertEqual(show(f"{SERVICE}.service", "ExecMainStatus"), "0")
        self.assertEqual(show(f"{SERVICE}.service", "NRestarts"), "0")
        self.assertEqual(show(f"{SERVICE}.service", "ActiveState"), "inactive")
        self.answered()
        self.assertNotIn(main_process(), (0, first))

    def test_a_hoist_that_is_killed_again_and_again_closes_the_service_to_nobody(self):
        for _ in range(12):
            self.answered()
            os.kill(main_process(), signal.SIGKILL)
            self.wait_for_end()
        self.answered()
        self.assertEqual(show(f"{SERVICE}.socket", "ActiveState"), "active")

    def test_a_hoist_that_cannot_start_is_tried_again(self):
        DROP_IN.parent.mkdir(parents=True, exist_ok=True)
        DROP_IN.write_text("[Service]\nExecStart=\nExecStart=/bin/false\n")
        try:
            run("systemctl", "daemon-reload")
            with socket.socket(socket.AF_UNIX) as client:
                client.connect(str(SOCKET))
                self.wait_until(lambda: show(f"{SERVICE}.service", "Result") != "success", "a failed start")
        finally:
            DROP_IN.unlink()
            run("systemctl", "daemon-reload")
        self.assertEqual(show(f"{SERVICE}.socket", "ActiveState"), "active")
        self.answered()

    def test_helpers_inherit_the_machine_as_it_is(self):
        self.answered()
        process = pathlib.Path(f"/proc/{main_process()}")
        status = dict(line.split(":\t", 1) for line in (process / "status").read_text().splitlines())
        self.assertEqual(status["NoNewPrivs"], "0")
        for kind in ("mnt", "net", "user", "uts", "ipc", "pid"):
            self.assertEqual(os.readlink(process / "ns" / kind), os.readlink(f"/proc/1/ns/{kind}"))
        needed = ("CHOWN", "DAC_OVERRIDE", "FOWNER", "FSETID", "SETUID", "SETGID", "SYS_ADMIN", "SYS_PTRACE")
        numbers = dict(CHOWN=0, DAC_OVERRIDE=1, FOWNER=3, FSETID=4, SETGID=6, SETUID=7, SYS_PTRACE=19, SYS_ADMIN=21)
        bounding = int(status["CapBnd"], 16)
        self.assertEqual([name for name in needed if not bounding >> numbers[name] & 1], [])
        self.assertEqual(show(f"{SERVICE}.service", "KillMode"), "process")

    def test_a_helper_is_launched_with_the_rights_of_root_for_an_ordinary_user(self):
        launch = run("hoistctl", "--json", "launch", HELPER, "--command=capture", user="nobody")
        self.assertEqual(launch.returncode, 0, launch.stderr)
        facts = json.loads(launch.stdout)
        self.assertEqual((facts["realUser"], facts["effectiveUser"]), (0, pwd.getpwnam("nobody").pw_uid))

    def test_the_service_manager_finds_nothing_wrong_with_them(self):
        result = run("systemd-analyze", "verify", "--man=no", *UNITS)
        self.assertEqual((result.returncode, result.stdout + result.stderr), (0, ""))

    def test_every_protection_that_helpers_can_live_with_is_on(self):
        result = run("systemd-analyze", "security", "--offline=yes", "--json=short", UNITS[1])
        exposed = {row["json_field"]: row["set"] for row in json.loads(result.stdout)}
        wanted = ("KeyringMode", "LockPersonality", "NotifyAccess", "RestrictRealtime", "SystemCallArchitectures",
                  "CapabilityBoundingSet_CAP_SYS_MODULE", "CapabilityBoundingSet_CAP_SYS_RAWIO",
                  "CapabilityBoundingSet_CAP_SYS_BOOT", "CapabilityBoundingSet_CAP_SYS_TIME")
        self.assertEqual([name for name in wanted if not exposed.get(name)], [], exposed)

    def test_what_it_logs_is_in_the_journal_with_its_fields(self):
        self.answered()
        refused = "/nonexistent/KelvoHelper.app/Contents/Linux/KelvoHelper"
        # A helper that fails its verification is logged, and never answered.
        run("gdbus", "call", "--timeout", "1", "--address", f"unix:path={SOCKET}", "--dest", SERVICE, "--object-path",
            "/", "--method", "com.kelvo.TesselHoisting.launchPrivilegedHelper_commandName_flags_reply_", refused,
            "capture", "[]")
        run("journalctl", "--sync")
        entries = [json.loads(line) for line in
                   run("journalctl", "--unit", SERVICE, "--output", "json").stdout.splitlines()]
        failures = [entry for entry in entries if "helper failed validation" in str(entry.get("MESSAGE"))]
        self.assertTrue(failures, entries)
        self.assertIn("KELVO_LINE", failures[0])
        self.assertIn("KELVO_CLASS", failures[0])


if __name__ == "__main__":
    unittest.main()
