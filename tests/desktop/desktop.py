"""A whole desktop of the tests' own: home, X server, session bus and notification daemon.

Lives in the private /tmp of `private_session`, which ends everything that was started. The bus
finds the services of the build tree and only those of the system's that a file manager cannot do
without, and the file manager finds the build's module only.
"""
import os
import pathlib
import shutil
import signal
import subprocess
import time

import accessible

SCREEN = "1280x900x24"
GROUP = "Q4T7N2XR8K.com.vessok.tervano"
SYSTEM_SERVICES = ("org.a11y.Bus", "org.gtk.vfs.Daemon", "org.gtk.vfs.Metadata",
                   "org.xfce.Xfconf")


def wait_for(what, done, seconds=20):
    """Polls until `done` answers something true, which is returned; fails after that time."""
    end = time.monotonic() + seconds
    while True:
        found = done()
        if found:
            return found
        if time.monotonic() > end:
            raise AssertionError(f"waited {seconds} s in vain for {what}")
        time.sleep(0.02)


class Desktop:
    """The session. The environment of this process is changed to it."""
    work = pathlib.Path("/tmp/session")
    home = work / "home"

    def __init__(self, build):
        self.build = pathlib.Path(build)
        self.files = self.home / "files"
        self.target = self.home / "target"
        self.container = self.home / ".local/share" / GROUP
        for folder in (self.work / "run", self.files, self.target):
            folder.mkdir(mode=0o700, parents=True)
        for name in ("WAYLAND_DISPLAY", "XDG_CURRENT_DESKTOP"):
            os.environ.pop(name, None)
        os.environ.update(
            HOME=str(self.home), XDG_CONFIG_HOME=str(self.home / ".config"),
            XDG_DATA_HOME=str(self.home / ".local/share"),
            XDG_CACHE_HOME=str(self.home / ".cache"),
            XDG_STATE_HOME=str(self.home / ".local/state"),
            XDG_RUNTIME_DIR=str(self.work / "run"),
            XDG_DATA_DIRS=f"{self.build}/share:/usr/local/share:/usr/share", GSK_RENDERER="cairo",
            LIBGL_ALWAYS_SOFTWARE="1", GSETTINGS_BACKEND="keyfile", LC_ALL="C.UTF-8",
            GIO_USE_VOLUME_MONITOR="unix")
        self.write(".config/gtk-3.0/settings.ini", "[Settings]\ngtk-menu-images=1\n")
        os.environ["DISPLAY"] = ":" + self._start_announced(
            ["Xvfb", "-displayfd", "{fd}", "-screen", "0", SCREEN, "-nolisten", "tcp",
             "-noreset"])
        os.environ["DBUS_SESSION_BUS_ADDRESS"] = self._start_announced(
            ["dbus-daemon", "--config-file", self._bus_configuration(), "--nofork",
             "--print-address", "{fd}"])
        accessible.connect(os.environ["DBUS_SESSION_BUS_ADDRESS"])

    def _bus_configuration(self):
        services = self.work / "services"
        services.mkdir()
        for name in SYSTEM_SERVICES:
            shutil.copy(f"/usr/share/dbus-1/services/{name}.service", services)
        return self.write("bus.conf", f"""<!DOCTYPE busconfig PUBLIC
 "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig><type>session</type><listen>unix:dir={self.work}</listen>
<servicedir>{self.build}/share/dbus-1/services</servicedir>
<servicedir>{services}</servicedir>
<policy context="default"><allow send_destination="*" eavesdrop="true"/><allow eavesdrop="true"/>
<allow own="*"/></policy></busconfig>
""")

    def _start_announced(self, command):
        """Starts a program that writes one line to a descriptor once it is ready."""
        reading, writing = os.pipe()
        self.start([word.format(fd=writing) for word in command], pass_fds=[writing])
        os.close(writing)
        with os.fdopen(reading) as announcement:
            line = announcement.readline().strip()
        if not line:
            raise AssertionError(f"{command[0]} did not start: {self.log_of(command[0])}")
        return line

    def log_of(self, name):
        """What a program of the session has written."""
        return (self.work / (name + ".log")).read_text(errors="replace")

    def start(self, command, **options):
        """A program of the session, which ends with it at the latest."""
        with open(self.work / (os.path.basename(command[0]) + ".log"), "ab") as log:
            return subprocess.Popen(command, start_new_session=True, stdin=subprocess.DEVNULL,
                                    stdout=log, stderr=log, **options)

    def write(self, name, text):
        """A file in the home; its path."""
        path = self.home / name
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)
        return str(path)

    def tervano(self, *words):
        """Runs the built program; its output without the last line end."""
        done = subprocess.run([self.build / "bin/tervano", *words], check=False,
                              capture_output=True, text=True)
        if done.returncode:
            raise AssertionError(f"tervano {words}: {done.stderr}")
        return done.stdout.rstrip("\n")

    def processes_named(self, name):
        """The process ids of the session's programs of that name."""
        found = []
        for folder in pathlib.Path("/proc").glob("[0-9]*"):
            try:
                words = (folder / "cmdline").read_bytes().split(b"\0")
            except OSError:
                continue
            if os.path.basename(words[0].decode(errors="replace")) == name:
                found.append(int(folder.name))
        return found

    def use_module(self, library, folder):
        """Lets `folder` hold this library and nothing else."""
        place = self.work / "modules"
        place.mkdir()
        (place / library.name).symlink_to(library)
        os.makedirs(folder, exist_ok=True)
        subprocess.run(["mount", "--bind", place, folder], check=True)

    def hand_offs(self):
        """The files in the container that hand a choice over."""
        return [path for path in self.container.iterdir()
                if len(path.name) == 36] if self.container.exists() else []

    def wait_for_notification(self, text):
        def shown():
            subprocess.run(["dunstctl", "close-all"], check=True)
            return text in subprocess.run(["dunstctl", "history"], check=True,
                                          capture_output=True, text=True).stdout
        wait_for(f"the notification {text!r}", shown)

    def screenshot(self, name):
        """A picture of the screen in the build tree's folder of pictures."""
        folder = self.build / "screenshots"
        folder.mkdir(exist_ok=True)
        subprocess.run(["import", "-window", "root", folder / (name + ".png")], check=True)


def end(process):
    """Ends a program of the session and waits for its end."""
    process.send_signal(signal.SIGKILL)
    process.wait()


def keys(*names):
    subprocess.run(["xdotool", "key", *names], check=True)


def click(x, y, button=1, modifier=None):
    command = ["xdotool", "mousemove", str(x), str(y)]
    if modifier:
        command += ["keydown", modifier]
    command += ["click", str(button)]
    if modifier:
        command += ["keyup", modifier]
    subprocess.run(command, check=True)
