"""Devices and a machine that fail in the kernel's way, under a running service: it
lives, or is started again, and takes a configuration once the trouble is over."""

import re

import machine
import service

BEGIN = """\
S90=/etc/init.d/S90vantorig
host() { vboard-kernel melk $board "$@" 2>&1; }
configure() {
  host send-config /job/config.ini
  sleep ${1:-40}
  host status
}
service_number() { pidof vantorig; }
seconds() { cut -d . -f 1 /proc/uptime; }
"""

START = """\
$S90 start
sleep 3
configure
first=$(service_number)
"""

END = """\
last=$(service_number)
echo "service: $([ "$first" = "$last" ] && echo lives || echo "started again")"
"""

# What happens, in the shell's words, between a healthy service and its end.
CASES = {
    "the drivers are gone for a minute": START + """\
kill $devices
sleep 60
echo "meanwhile: $(service_number | wc -w) service"
start_devices
sleep 30
host hd-version
[ "$(host hd-version | head -c 4)" = melk ] && $S90 restart && sleep 3
configure
""" + END,
    "the bus is stuck during a configuration": START + """\
echo 1 >/sys/module/vboard_bus/parameters/stuck
configure 240
echo 0 >/sys/module/vboard_bus/parameters/stuck
sleep 60
configure
""" + END,
    "the file system is full": """\
mount -t tmpfs -o size=4m none /mnt
cp -a /home/tovin/* /mnt/
mount --move /mnt /home/tovin
cd /home/tovin
""" + START + """\
dd if=/dev/zero of=/home/tovin/fill bs=4096 2>/dev/null
df /home/tovin | tail -n 1
configure
rm /home/tovin/fill
configure
""" + END,
    "memory runs out": START + """\
for one in 1 2 3; do
  tail -c 500000000 /dev/zero >/dev/null 2>&1
  sleep 20
done
dmesg | grep -i 'killed process'
configure
""" + END,
}
MEMORY = {"memory runs out": "24"}


def run(kind):
    good = True
    files = [
        ("home/tovin/vantorig", service.old_program(), True),
        ("home/tovin/version.ini", service.OLD_VERSION, False),
        ("etc/init.d/S90vantorig", service.START_SCRIPT, True),
        ("job/config.ini", service.CONFIGURATION, False),
    ]
    for name, job in CASES.items():
        outcome = machine.boot(
            kind, BEGIN + job, files, deliver=False, memory=MEMORY.get(name), limit_s=400
        )
        states = service.statuses(outcome.console)
        lived = re.search(r"^service: (.*)$", outcome.console, re.M)
        healthy = bool(states) and states[-1].startswith("0x9") and states[-1][3] in "13579bd"
        print(f"{name}: {lived.group(1) if lived else 'no end'}; states {', '.join(states)}")
        if not (healthy and lived):
            good = False
            print(outcome.console)
    return good
