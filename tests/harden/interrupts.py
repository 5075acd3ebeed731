"""Long work: python tests/harden/interrupts.py [--quick]

Where foreign code or lists take part, a signal ends it within a second, and the array
is as before, or as after all of it. What runs over elements alone passes ten million
a second, whatever their shape; half of that counts here, where others may be at work.
Times are those of the processor, and say little of a sanitized build.
"""

import copy
import signal
import sys
import time

import hillshade
import numpy
import vellum

N = 2 ** (18 if "--quick" in sys.argv else 21)
ENDLESS = range(2**40)
INTERRUPTED = {  # the size of the array, and what is done with it
    "construct, flat": ((2, 3), lambda a: vellum.double(range(N))),
    "construct, rows": ((2, 3), lambda a: vellum.int64([[1, 2]] * N)),
    "construct, empty rows": ((2, 3), lambda a: vellum.double([[[]] * 1000] * (N // 500))),
    "construct, endless": ((2, 3), lambda a: vellum.double(ENDLESS)),
    "vector": ((2, 3), lambda a: vellum.logical(vector=range(N))),
    "size": ((2, 3), lambda a: vellum.double(size=[1] * N + [2])),
    "size, endless": ((2, 3), lambda a: vellum.double(size=range(1, 2**31))),
    "reshape": ((2, 3), lambda a: a.reshape([2, 3] + [1] * N)),
    "reshape, endless": ((2, 3), lambda a: a.reshape(range(1, 2**31))),
    "assign row": ((2, N), lambda a: a.__setitem__(0, range(N))),
    "assign row, endless": ((2, N), lambda a: a.__setitem__(0, ENDLESS)),
    "assign flat slice": ((2, N), lambda a: a[0].__setitem__(slice(N), range(N))),
    "assign region": ((2, N), lambda a: a.__setitem__(slice(2), [range(N)] * 2)),
    "list": ((N, 2), vellum.double.__reduce__),
    "list of empty ones": ((2 * N, 0), vellum.double.__reduce__),
    "text": ((N, 2), str),
    "copy": ((N, 2), copy.copy),
    "attributes": ([1] * N + [2], lambda a: (a.size, a.get_bytewise_strides())),
}
SIDE = 2 ** (N.bit_length() // 2)
SHAPES = [(SIDE, N // SIDE), (N // 2, 2), (2, N // 2), (N // 2, *[1] * 900, 2),
          [2] * (N.bit_length() - 1)]  # fmt: skip
GRID = numpy.ones((SIDE, N // SIDE))
ROW = vellum.double(GRID.ravel())[0]
FAST = {
    "zeros": lambda a: type(a)(size=a.size, is_complex=a._is_complex),
    "clone": lambda a: a[::-1].clone(),
    "compare": lambda a: a == a[:],
    "construct from array": lambda a: type(a)(a, is_complex=a._is_complex),
    "convert to double": lambda a: vellum.double(a, is_complex=a._is_complex),
    "assign array": lambda a: a.__setitem__(slice(None), a),
    "one part": lambda a: a.real() if a._is_complex else a.noncomplex(),
    "construct from rows of a buffer": lambda a: vellum.double(GRID),
    "construct from columns of a buffer": lambda a: vellum.double(GRID.T),
    "toarray": lambda a: ROW.toarray(),
}


def state(array):
    return len(array.size), array.size[:3], hillshade.service_bytes(array)


def seconds(work, array):
    started = time.process_time()
    work(array)
    return time.process_time() - started


def interrupt(name, size, work):
    """Gives the longest time from a signal to the end."""
    array, latest, whole = vellum.double(size=size), 0, 2
    legal, delays = [state(array)], [0.01, 0.1, 0.5]
    if "endless" not in name:
        whole = seconds(work, array)
        delays = [whole * eighth / 8 for eighth in (1, 3, 5, 7)]
        legal.append(state(array))
    for delay in delays:
        array = vellum.double(size=size)
        signal.setitimer(signal.ITIMER_PROF, delay)
        started = time.process_time()
        try:
            work(array)
            while time.process_time() < started + delay + 2:
                """It was quick: the signal is still to come."""
            sys.exit(f"{name}: the signal after {delay:.3f} s is lost")
        except KeyboardInterrupt:
            latest = max(latest, time.process_time() - started - delay)
        if latest > min(1, whole / 2 + 0.05):  # or it only ends because all is done
            sys.exit(f"{name}: interrupted after {delay:.3f} s, it goes on for {latest:.3f} s")
        if state(array) not in legal or array != array.clone():
            sys.exit(f"{name}: interrupted after {delay:.3f} s, it is neither as before nor done")
    return latest


def rate(work, array):
    return max(N / seconds(work, array) for _ in range(5)) / 1e6


if __name__ == "__main__":
    signal.signal(signal.SIGPROF, signal.default_int_handler)
    times = {name: interrupt(name, *row) for name, row in INTERRUPTED.items()}
    last = max(times, key=times.get)
    print(f"interrupts: {len(times)} operations, at most {times[last]:.3f} s ({last})", flush=True)
    rates = {}
    for kind in ("double", "single", "int8", "uint64", "logical"):
        for number, size in enumerate(SHAPES):
            array = getattr(vellum, kind)(size=size, is_complex=kind == "single")
            for name, work in FAST.items():
                rates[f"{name}, {kind}, shape {number}"] = rate(work, array)
    last = min(rates, key=rates.get)
    print(f"rates: {len(rates)} loops, at least {rates[last]:.1f} million a second ({last})")
    sys.exit(rates[last] < 5)
