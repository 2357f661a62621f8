#!/usr/bin/python3
"""The examples of docs/guide-python.md, whose output is in expected/. Writes to the current directory."""

# [groups]
import tnrobotkernel as tn

settings = tn.Group(camera="left", exposure=12.5, gain=3)
settings.set("shots", 200, type=tn.ValueType.USHORT)
tn.save("settings.tnr", settings)

loaded = tn.load("settings.tnr")
print(loaded)
print(loaded.type("gain").name, loaded.type("shots").name, loaded == settings)
# [/groups]

# [refusals]
for name, value in (("pixels", [1, 2]), ("huge", 2**64)):
    try:
        settings[name] = value
    except (TypeError, OverflowError) as error:
        print(f"{type(error).__name__}: {error}")
try:
    tn.load("missing.tnr")
except FileNotFoundError as error:
    print(error)
with open("cut.tnr", "wb") as file:
    file.write(tn.dumps(settings)[:-1])
try:
    tn.load("cut.tnr")
except tn.Error as error:
    print(error.code.name, error)
# [/refusals]

# [several]
with tn.GroupFileWriter("parts.tnr") as writer:
    for number in range(3):
        writer.write(tn.Group(number=number, good=number != 1))
print([group["number"] for group in tn.GroupFileReader("parts.tnr") if group["good"]])
# [/several]

# [pictures]
import numpy as np

frame = np.zeros((48, 64, 3), np.uint8)
frame[10:20, 30:50] = (0, 0, 255)  # blue, green, red
tn.save_image("frame.jpg", frame)

surface = tn.load_image("frame.jpg")
red = surface.array[:, :, 2] > 128  # a view: nothing is copied
rows, columns = np.nonzero(red)
print(surface, "red from", (int(columns.min()), int(rows.min())), "to", (int(columns.max()), int(rows.max())))
part = tn.clip(surface, 30, 10, 50, 20)
part.array[...] = 255 - part.array
print(part, part.array.strides, part.array[0, 0])
# [/pictures]

# [over]
over = tn.Surface.from_array(frame)  # shares the array's memory
over.array[0, 0] = 7
print(frame[0, 0], over.format.name)
try:
    tn.Surface.from_array(frame[::-1])
except ValueError as error:
    print(error)
print(tn.Surface.from_array(frame[::-1], copy=True))
# [/over]

# [pools]
pool = tn.LimitedPool(1_000_000)
surfaces = tn.SurfacePool(pool)
kept = [surfaces.surface(640, 480, tn.ImageFormat.GRAY8) for _ in range(3)]
try:
    surfaces.surface(640, 480, tn.ImageFormat.GRAY8)
except tn.Error as error:
    print(error.code.name)
view = kept[0].array
kept.clear()
print(pool.counters.live_blocks, "block is in use: a view is left")
# [/pools]

# [tasks]
with tn.TaskPool() as tasks:
    job = tasks.run(tn.load_image, "frame.jpg")
    print(job.result(timeout=10).array.mean().round(1))
    print(tasks.map(lambda number: number * number, range(6), threads=2))
    failing = tasks.run(int, "not a number")
    print(repr(failing.exception()))


def measure_until_told() -> int:
    passes = 0
    while not tn.should_stop():
        passes += 1
    return passes


with tn.TaskPool() as tasks:
    job = tasks.run(measure_until_told)
    while not job.running():
        pass
    job.cancel()
    print("stopped after some passes:", job.result() >= 0)
# [/tasks]

# [waiting]
event = tn.Event()
print(event.wait(timeout=0.01))
event.set()
print(event.wait())
# [/waiting]


# [archives]
GRIPPER = "7d0f2a52-5a5e-4b7e-8f1c-0c6f1f1b2c3d"


def write_gripper(archive: tn.ArchiveWriter, gripper: dict[str, object]) -> None:
    archive.write_string(str(gripper["name"]))
    archive.write_object(GRIPPER, gripper["spare"], write_gripper)


def read_gripper(archive: tn.ArchiveReader) -> dict[str, object]:
    return {"name": archive.read_string(), "spare": archive.read_object()}


writer = tn.ArchiveWriter()
writer.write_object(GRIPPER, {"name": "suction", "spare": {"name": "jaws", "spare": None}}, write_gripper)
writer.save("grippers.tnr")
print(tn.load_archive("grippers.tnr", {GRIPPER: read_gripper}))
print(tn.load_archive("grippers.tnr")[0].identifier)
# [/archives]
