"""System headers of devices appear only in the files that own a device."""

import re

import common

HEADER = re.compile(r"^\s*#\s*include\s+<(sys/ioctl\.h|sys/shm\.h|sys/sem\.h|sys/select\.h|linux/[^>]+)>")

OWNERS = {
    "diag/capture_bench.cpp": "private registers and crop of the capture device",
    "diag/fpga_bench.cpp": "raw FPGA requests",
    "hostlink/link.cpp": "SPI slave device",
    "hw/bitstream.cpp": "FPGA configuration port",
    "hw/fpga.cpp": "FPGA registers",
    "hw/gpio.cpp": "line actions, LEDs",
    "hw/i2capi.cpp": "I2C bus and semaphores",
    "hw/shared_memory_davinci.cpp": "shared block",
    "video/capture.cpp": "capture device",
}

def device_header(text):
    match = HEADER.match(text)
    return match.group(1) if match else None

def findings():
    users = set()
    for path in common.product_files():
        for number, text in common.lines(path):
            header = device_header(text)
            if header is None:
                continue
            users.add(common.name(path))
            if common.name(path) not in OWNERS:
                yield f"{common.name(path)}:{number}: <{header}> in a file that owns no device"
    for owner in sorted(set(OWNERS) - users):
        yield f"{owner}: listed as the owner of a device ({OWNERS[owner]}), includes no device header"

if __name__ == "__main__":
    common.finish(list(findings()), "Go through the owner, or list a new one in device_headers.py.")
