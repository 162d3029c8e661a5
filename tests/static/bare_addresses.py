"""FPGA registers are named: no bare address outside the register map."""

import re

import common

CALL = re.compile(r"\b(GetValue|SetValue|GetArray|SetArray)\s*\(\s*([0-9][0-9a-fA-FxX']*)")
MAP = "hw/fpga_registers.h"


def bare_address(text):
    match = CALL.search(text.split("//")[0])
    return match.group(2) if match else None


def findings():
    for path in common.product_files():
        if common.name(path) == MAP:
            continue
        for number, text in common.lines(path):
            address = bare_address(text)
            if address:
                yield f"{common.name(path)}:{number}: bare FPGA address {address}"


if __name__ == "__main__":
    common.finish(list(findings()), f"Use the constants of {MAP}.")
