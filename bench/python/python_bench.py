#!/usr/bin/python3
"""Measures the Python package beside its peers: bench/python/python_bench.py [--quick].

Each row is the median of 15 measurements. Times of one thread are thread processor time, so that a busy machine
disturbs them less; the row of threads is time on the clock. Peers that are not installed are left out. Needs the
package on Python's path: PYTHONPATH=build/release/python.
"""

from __future__ import annotations

import argparse
import gc
import os
import statistics
import tempfile
import threading
import time
from typing import Any, Callable, Optional

import numpy as np

import tnrobotkernel as tn

REPEATS = 15


def measure(call: Callable[[], Any], rounds: int, clock: Callable[[], float] = time.thread_time) -> float:
    """Seconds of one call."""
    times = []
    for _ in range(REPEATS):
        begin = clock()
        for _ in range(rounds):
            call()
        times.append((clock() - begin) / rounds)
    return statistics.median(times)


def row(name: str, ours: float, peer: Optional[str] = None, theirs: Optional[float] = None) -> None:
    beside = f"  {peer} {theirs * 1e6:10.2f} us  ratio {ours / theirs:.2f}" if peer and theirs else ""
    print(f"{name:32}{ours * 1e6:10.2f} us{beside}")


def photograph() -> np.ndarray[Any, Any]:
    """A picture with the detail of a camera's."""
    y, x = np.mgrid[0:1080, 0:1920]
    base = np.stack([x * 255 / 1920, y * 255 / 1080, 128 + 100 * np.sin(x / 40) * np.cos(y / 30)], axis=2)
    noise = np.random.default_rng(20).normal(0, 6, base.shape)
    return np.clip(base + noise, 0, 255).astype(np.uint8)


def threads_beside_one(call: Callable[[], Any], count: int, rounds: int) -> float:
    """How many times as fast so many threads are together as one alone, by the clock."""

    def run(threads: int) -> float:
        workers = [threading.Thread(target=lambda: [call() for _ in range(rounds)]) for _ in range(threads)]
        begin = time.perf_counter()
        for worker in workers:
            worker.start()
        for worker in workers:
            worker.join()
        return (time.perf_counter() - begin) / threads

    return statistics.median(run(1) / run(count) for _ in range(5))


def main() -> None:
    """Print all rows."""
    global REPEATS
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--quick", action="store_true", help="only show that everything runs")
    quick = parser.parse_args().quick
    if quick:
        REPEATS = 1
    many, few = (100, 1) if quick else (20_000, 3)
    gc.disable()

    small = tn.SurfacePool().surface(64, 48, tn.ImageFormat.BGR24)
    large = tn.SurfacePool().surface(1920, 1080, tn.ImageFormat.BGR24)
    row("surface.array, 64 x 48", measure(lambda: small.array, many))
    row("surface.array, 1920 x 1080", measure(lambda: large.array, many))
    names = [f"value {n}" for n in range(1000)]
    group, mapping = tn.Group({name: 1 for name in names}), {name: 1 for name in names}

    def read(values: Any) -> None:
        for name in names:
            values[name]

    row("1,000 x group[name]", measure(lambda: read(group), few * 10), "dict", measure(lambda: read(mapping), few * 10))

    with tempfile.TemporaryDirectory() as directory:
        path = os.path.join(directory, "picture.jpg")
        tn.save_image(path, photograph())
        ours = measure(lambda: tn.load_image(path), few)
        row("load_image, 1920 x 1080", ours)
        try:
            import cv2
        except ImportError:
            print("cv2 is not installed")
        else:
            cv2.setNumThreads(1)
            row("load_image", ours, "cv2.imread", measure(lambda: cv2.imread(path), few))
        try:
            from PIL import Image
        except ImportError:
            print("Pillow is not installed")
        else:
            row("load_image", ours, "Pillow", measure(lambda: np.asarray(Image.open(path).convert("RGB")), few))
        for count in (2, 4):
            print(f"load_image, {count} threads: {threads_beside_one(lambda: tn.load_image(path), count, few):.2f} x one")


if __name__ == "__main__":
    main()
