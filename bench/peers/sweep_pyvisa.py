"""One sweep, command to values, with pyvisa over pyvisa-py, in its fastest
pattern: the sweep and the fetch as one query answered at once, read with
query_binary_values. Prints the best time of the rounds in milliseconds and
the number of values."""
import sys
import time

import pyvisa


def main():
    resource, points, rounds = sys.argv[1], sys.argv[2], int(sys.argv[3])
    manager = pyvisa.ResourceManager("@py")
    instrument = manager.open_resource(resource, read_termination="\n", write_termination="\n")
    instrument.timeout = 20000
    instrument.query(f"*RST;:INIT:CONT OFF;:FORM REAL,32;:FORM:BORD SWAP;:SWE:POIN {points};*OPC?")
    best = float("inf")
    count = 0
    for round_number in range(rounds + 1):
        started = time.perf_counter()
        values = instrument.query_binary_values(
            "INIT:IMM;*WAI;:TRAC? TRACE1", datatype="f", is_big_endian=False, expect_termination=True
        )
        elapsed = (time.perf_counter() - started) * 1000.0
        count = len(values)
        if round_number > 0:  # the first round warms up
            best = min(best, elapsed)
    instrument.close()
    manager.close()
    print(f"{best:.3f} {count}")


if __name__ == "__main__":
    main()
