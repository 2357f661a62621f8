"""Surfaces as arrays without a copy, what keeps their memory, and pictures in files."""

from __future__ import annotations

import ctypes
import gc
import pathlib
import threading
import weakref
from typing import Any

import pytest

import tnrobotkernel as tn
from tnrobotkernel import Error, ErrorCode, ImageFormat, LimitedPool, Surface, SurfacePool

np = pytest.importorskip("numpy")

FORMATS = [
    (ImageFormat.RGB24, (5, 7, 3)),
    (ImageFormat.BGR24, (5, 7, 3)),
    (ImageFormat.BYTE_3, (5, 7)),
    (ImageFormat.GRAY8, (5, 7)),
    (ImageFormat.BGRX32, (5, 7, 4)),
]


def pattern(*shape: int) -> Any:
    return (np.arange(int(np.prod(shape))) * 7 % 251).astype(np.uint8).reshape(shape)


@pytest.mark.parametrize(("format", "shape"), FORMATS)
def test_the_array_is_a_view(format: ImageFormat, shape: tuple[int, ...]) -> None:
    surface = SurfacePool().surface(7, 5, format)
    assert (surface.width, surface.height, surface.format) == (7, 5, format)
    array = surface.array
    buffer: Any = surface
    assert array.shape == shape and array.dtype == np.uint8 and array.strides[0] == surface.pitch
    assert array.flags.writeable and not array.flags.owndata and not array.any()
    array[...] = pattern(*shape)
    assert (surface.array == pattern(*shape)).all() and np.shares_memory(array, surface.array)
    for other in (np.asarray(surface), np.array(memoryview(buffer)), np.from_dlpack(surface)):
        assert other.shape == shape and (other == pattern(*shape)).all()
    assert np.shares_memory(np.asarray(surface), array) and np.shares_memory(np.from_dlpack(surface), array)


def test_padded_rows_are_no_flat_buffer() -> None:
    surface: Any = SurfacePool().surface(7, 5, ImageFormat.BGR24)
    assert surface.pitch == 24 and surface.array.strides == (24, 3, 1)
    view = memoryview(surface)
    assert view.shape == (5, 7, 3) and view.strides == (24, 3, 1) and view.nbytes == 105 and not view.contiguous
    assert len(view.tobytes()) == 105
    with pytest.raises((BufferError, TypeError)):
        (ctypes.c_char * 105).from_buffer(surface)
    plain: Any = SurfacePool().surface(8, 5, ImageFormat.BGR24)
    assert len((ctypes.c_char * 120).from_buffer(plain)) == 120
    view.release()


def test_420_is_an_array_of_planes() -> None:
    surface = SurfacePool().surface(8, 6, ImageFormat.YUV420)
    assert surface.array.shape == (9, 8)
    surface.array[...] = pattern(9, 8)
    made = Surface.from_array(surface.array, ImageFormat.YUV420)
    assert (made.width, made.height) == (8, 6) and np.shares_memory(made.array, surface.array)
    assert (surface.copy().array == pattern(9, 8)).all()
    with pytest.raises(Error) as caught:
        SurfacePool().surface(7, 5, ImageFormat.YUV420).array
    assert caught.value.code is ErrorCode.FORMAT_NOT_SUPPORTED
    for wrong in (pattern(8, 8), pattern(9, 7), pattern(9, 8, 3)):
        with pytest.raises(ValueError):
            Surface.from_array(wrong, ImageFormat.YUV420)


@pytest.mark.parametrize("view", [lambda s: s.array, memoryview, np.asarray, np.from_dlpack, lambda s: s.array[1:3, 2:]])
def test_a_view_keeps_surface_and_pool(view: Any) -> None:
    blocks = LimitedPool(1 << 20)
    pool = SurfacePool(blocks)
    surface = pool.surface(64, 64, ImageFormat.GRAY8)
    surface.array[...] = 77
    kept = view(surface)
    del surface, pool
    gc.collect()
    assert blocks.counters.live_blocks == 1
    assert (np.asarray(kept) == 77).all()
    del kept
    gc.collect()
    assert blocks.counters.live_blocks == 0


def test_a_capsule_that_nobody_takes_is_given_back() -> None:
    blocks = LimitedPool(1 << 20)
    surface = SurfacePool(blocks).surface(8, 8, ImageFormat.GRAY8)
    capsule = surface.__dlpack__()
    assert surface.__dlpack_device__() == (1, 0)
    with pytest.raises(BufferError):
        surface.__dlpack__(stream=1)  # type: ignore[arg-type]
    del surface
    assert blocks.counters.live_blocks == 1
    del capsule
    assert blocks.counters.live_blocks == 0


@pytest.mark.parametrize(("format", "shape"), FORMATS)
def test_an_array_becomes_a_surface_without_a_copy(format: ImageFormat, shape: tuple[int, ...]) -> None:
    array = pattern(*shape)
    surface = Surface.from_array(array, format)
    assert surface.format is format and np.shares_memory(surface.array, array)
    surface.array[0, 0] = 99
    assert (array[0, 0] == 99).all()
    kept = weakref.ref(array)
    del array
    gc.collect()
    assert (surface.array[0, 0] == 99).all() and kept() is not None
    view = surface.array
    del surface
    gc.collect()
    assert (view[0, 0] == 99).all() and kept() is not None
    surface = Surface.from_array(view)
    del view
    assert kept() is not None
    copied = Surface.from_array(surface.array, format, copy=True)
    assert (copied.array == surface.array).all() and not np.shares_memory(copied.array, surface.array)
    del surface
    gc.collect()
    assert kept() is None


def test_formats_follow_from_the_channels() -> None:
    for shape, format in (((2, 3), 7), ((2, 3, 1), 7), ((2, 3, 3), 2), ((2, 3, 4), 9)):
        assert Surface.from_array(pattern(*shape)).format == format
    assert Surface.from_array(pattern(2, 3, 3), ImageFormat.RGB24).format is ImageFormat.RGB24


def test_strides_that_a_surface_can_have() -> None:
    whole = pattern(10, 12, 3)
    padded = SurfacePool().surface(7, 5, ImageFormat.BGR24).array
    assert np.shares_memory(Surface.from_array(padded).array, padded)
    for part in (whole[2:8], whole[::2], whole[1:9, 2:7], whole[0:9, 3:]):
        surface = Surface.from_array(part)
        assert np.shares_memory(surface.array, part) and (surface.array == part).all()
        assert surface.pitch == part.strides[0]
    assert Surface.from_array(whole[9:10, 3:5]).array.shape == (1, 2, 3)


@pytest.mark.parametrize(
    "part",
    [
        lambda a: a[::-1],
        lambda a: a[:, ::-1],
        lambda a: a[:, ::2],
        lambda a: a[:, :, ::-1],
        lambda a: a.transpose(1, 0, 2),
        lambda a: a[5:, 3:],
        lambda a: np.broadcast_to(a[:1], a.shape),
    ],
)
def test_other_layouts_say_so_and_are_copied_if_asked(part: Any) -> None:
    array = part(pattern(10, 12, 3))
    with pytest.raises(ValueError, match="copy=True"):
        Surface.from_array(array)
    for copy in (True, None):
        surface = Surface.from_array(array, copy=copy)
        assert (surface.array == array).all() and not np.shares_memory(surface.array, array)


def test_readonly_arrays_are_copied() -> None:
    array = pattern(4, 4)
    array.flags.writeable = False
    for source in (array, memoryview(array)):
        with pytest.raises(ValueError, match="copy=True"):
            Surface.from_array(source)
        assert (Surface.from_array(source, copy=None).array == array).all()


@pytest.mark.parametrize(
    ("array", "error"),
    [
        (None, TypeError),
        ([[1, 2], [3, 4]], TypeError),
        (3, TypeError),
        ("picture", TypeError),
        (np.zeros((4, 4), np.float32), TypeError),
        (np.zeros((4, 4), np.int8), TypeError),
        (np.zeros((4, 4), bool), TypeError),
        (np.zeros((4, 4), np.uint16), TypeError),
        (np.zeros((4, 4), object), (TypeError, ValueError)),
        (np.zeros(16, np.uint8), ValueError),
        (np.zeros((), np.uint8), ValueError),
        (np.zeros((2, 2, 2, 2), np.uint8), ValueError),
        (np.zeros((4, 4, 2), np.uint8), ValueError),
        (np.zeros((4, 4, 0), np.uint8), ValueError),
        (np.zeros((0, 4), np.uint8), ValueError),
        (np.zeros((4, 0, 3), np.uint8), ValueError),
        (b"bytes", ValueError),
    ],
)
@pytest.mark.parametrize("copy", [True, False, None])
def test_what_is_no_picture_is_refused(array: Any, error: Any, copy: Any) -> None:
    with pytest.raises(error):
        Surface.from_array(array, copy=copy)


def test_formats_that_do_not_fit_are_refused() -> None:
    for format in (ImageFormat.GRAY8, ImageFormat.BGRX32):
        with pytest.raises(ValueError):
            Surface.from_array(pattern(4, 4, 3), format)
    with pytest.raises(ValueError):
        Surface.from_array(pattern(4, 4), 77)  # type: ignore[arg-type]
    with pytest.raises(TypeError):
        Surface.from_array(pattern(4, 4), "GRAY8")  # type: ignore[arg-type]


def test_a_bytearray_cannot_shrink_below_its_surface() -> None:
    memory = bytearray(16)
    surface = Surface.from_array(memoryview(memory).cast("B", (4, 4)))
    surface.array[...] = 5
    assert memory == b"\5" * 16
    with pytest.raises(BufferError):
        memory.clear()
    del surface
    memory.clear()


@pytest.mark.parametrize(
    ("width", "height", "format"),
    [(0, 4, 2), (4, 0, 2), (-1, 4, 2), (4, -(2**31), 2), (2**31 - 1, 2**31 - 1, 9), (2**31 - 1, 3, 9), (4, 4, 0), (4, 4, 10)],
)
def test_sizes_that_no_surface_has(width: int, height: int, format: int) -> None:
    with pytest.raises((ValueError, Error)):
        SurfacePool().surface(width, height, format)  # type: ignore[arg-type]


def test_wrong_arguments_are_type_errors() -> None:
    pool = SurfacePool()
    surface = pool.surface(4, 4, ImageFormat.GRAY8)
    calls: list[Any] = [
        lambda: pool.surface(None, 4, ImageFormat.GRAY8),  # type: ignore[arg-type]
        lambda: pool.surface(2**40, 4, ImageFormat.GRAY8),
        lambda: pool.surface(4, 4, None),  # type: ignore[arg-type]
        lambda: SurfacePool(3),  # type: ignore[arg-type]
        lambda: tn.clip(None, 0, 0, 1, 1),  # type: ignore[arg-type]
        lambda: tn.clip(surface, 0, 0, 1, None),  # type: ignore[arg-type]
        lambda: tn.join(surface, None),  # type: ignore[arg-type]
        lambda: tn.load_image(None),  # type: ignore[arg-type]
        lambda: tn.load_image("x.jpg", pool=3),  # type: ignore[arg-type]
        lambda: tn.decode_image("text"),
        lambda: tn.save_image(None, surface),  # type: ignore[arg-type]
        lambda: tn.save_image("x.jpg", None),
        lambda: tn.encode_image(None),
        lambda: Surface(),
        lambda: setattr(surface, "origin", (1,)),
        lambda: setattr(surface, "time_stamp", -1),
        lambda: setattr(surface, "width", 3),
    ]
    for call in calls:
        with pytest.raises((TypeError, AttributeError)):
            call()


def test_objects_that_were_never_made_are_no_crash() -> None:
    surface: Any = Surface.__new__(Surface)
    pool = SurfacePool.__new__(SurfacePool)
    calls: list[Any] = [
        lambda: surface.array,
        lambda: memoryview(surface),
        lambda: surface.__dlpack__(),
        lambda: surface.__array_interface__,
        lambda: surface.width,
        lambda: surface.format,
        lambda: surface.origin,
        lambda: surface.copy(),
        lambda: tn.clip(surface, 0, 0, 1, 1),
        lambda: tn.join(surface, surface),
        lambda: tn.save_image("/nowhere/a.jpg", surface),
        lambda: tn.encode_image(surface),
        lambda: pool.surface(1, 1, ImageFormat.GRAY8),
        lambda: tn.decode_image(b"x", pool=pool),
        lambda: LimitedPool.__new__(LimitedPool).counters,
        lambda: tn.GeneralPool.__new__(tn.GeneralPool).block(1),
        lambda: SurfacePool(LimitedPool.__new__(LimitedPool)),
    ]
    for call in calls:
        with pytest.raises((ValueError, BufferError)):
            call()
    assert repr(surface) == "<Surface without pixels>"


def test_origin_and_time_stamp() -> None:
    surface = SurfacePool().surface(4, 4, ImageFormat.GRAY8)
    assert surface.origin == (0, 0) and surface.time_stamp == 0
    surface.origin = (-3, 2**31 - 1)
    surface.time_stamp = 2**64 - 1
    copied = surface.copy()
    assert copied.origin == (-3, 2**31 - 1) and copied.time_stamp == 2**64 - 1
    assert repr(surface) == "<Surface 4 x 4 GRAY8>"


def test_parts_and_joins() -> None:
    surface = Surface.from_array(pattern(6, 8, 3))
    surface.origin = (5, 6)
    part = tn.clip(surface, 2, 1, 7, 4)
    assert (part.array == pattern(6, 8, 3)[1:4, 2:7]).all() and part.origin == (5, 6)
    both = tn.join(surface, surface)
    assert (both.array == np.hstack([pattern(6, 8, 3)] * 2)).all()
    for region in ((0, 0, 0, 1), (0, 0, 9, 1), (-1, 0, 2, 2), (0, 5, 2, 7), (4, 4, 2, 5), (0, 0, 2**31 - 1, 1)):
        with pytest.raises(ValueError):
            tn.clip(surface, *region)
    with pytest.raises(ValueError):
        tn.join(surface, part)
    with pytest.raises(ValueError):
        tn.join(surface, Surface.from_array(pattern(6, 8)))
    four = Surface.from_array(pattern(6, 8, 4))
    for part in (lambda s: tn.clip(s, 0, 0, 2, 2), lambda s: tn.join(s, s)):  # type: ignore[assignment]
        with pytest.raises(Error) as caught:
            part(four)  # type: ignore[operator]
        assert caught.value.code is ErrorCode.FORMAT_NOT_SUPPORTED


def test_pictures_in_files(tmp_path: pathlib.Path) -> None:
    array = np.full((48, 64, 3), (200, 100, 50), np.uint8)
    tn.save_image(tmp_path / "a.jpg", array)
    loaded = tn.load_image(str(tmp_path / "a.jpg"))
    assert loaded.format is ImageFormat.BGR24 and loaded.array.shape == (48, 64, 3)
    assert abs(loaded.array.astype(int) - array).max() < 4
    rgb = Surface.from_array(array[:, :, ::-1].copy(), ImageFormat.RGB24)
    tn.save_image(tmp_path / "b.jpg", rgb)
    assert abs(tn.load_image(tmp_path / "b.jpg").array.astype(int) - array).max() < 4
    data = tn.encode_image(array)
    assert data == (tmp_path / "a.jpg").read_bytes()
    assert (tn.decode_image(data).array == loaded.array).all()
    assert (tn.decode_image(memoryview(data)).array == loaded.array).all()
    tn.save_image(tmp_path / "c.bmp", array[:, :, :])
    assert (tn.load_image(tmp_path / "c.bmp").array == array).all()


def test_rows_of_any_layout_are_saved() -> None:
    array = pattern(40, 41, 3)
    whole = tn.encode_image(array)
    assert whole == tn.encode_image(Surface.from_array(array, copy=True))
    big = np.zeros((50, 60, 3), np.uint8)
    big[5:45, 7:48] = array
    assert tn.encode_image(big[5:45, 7:48]) == whole
    assert tn.encode_image(np.asfortranarray(array)) == whole


def test_failures_of_pictures_say_why(tmp_path: pathlib.Path) -> None:
    good = tn.encode_image(pattern(64, 64, 3))
    (tmp_path / "cut.jpg").write_bytes(good[: len(good) // 2])
    (tmp_path / "text.jpg").write_bytes(b"this is no picture")
    (tmp_path / "text.png").write_bytes(b"nor is this")
    (tmp_path / "empty.jpg").write_bytes(b"")
    for name, code in (
        ("cut.jpg", ErrorCode.PICTURE_INCOMPLETE),
        ("text.jpg", ErrorCode.NOT_A_PICTURE),
        ("text.png", ErrorCode.FORMAT_NOT_SUPPORTED),
    ):
        with pytest.raises(Error) as caught:
            tn.load_image(tmp_path / name)
        assert caught.value.code is code and caught.value.path == str(tmp_path / name)
    with pytest.raises(Error):
        tn.load_image(tmp_path / "empty.jpg")
    with pytest.raises(FileNotFoundError):
        tn.load_image(tmp_path / "missing.jpg")
    assert tn.load_image(tmp_path / "cut.jpg", allow_incomplete=True).array.shape == (64, 64, 3)
    with pytest.raises(Error):
        tn.decode_image(b"")
    with pytest.raises(Error):
        tn.decode_image(good[:20], allow_incomplete=True)
    for name, pixels in (("a.png", pattern(4, 4)), ("a.bmp", pattern(4, 5, 3))):
        with pytest.raises(Error) as caught:
            tn.save_image(tmp_path / name, pixels)
        assert caught.value.code is ErrorCode.FORMAT_NOT_SUPPORTED
    with pytest.raises(FileNotFoundError):
        tn.save_image(tmp_path / "no" / "a.jpg", pattern(4, 4))
    with pytest.raises(Error):
        tn.encode_image(SurfacePool().surface(8, 8, ImageFormat.YUV420))
    with pytest.raises(Error):
        tn.encode_image(np.zeros((1, 65501), np.uint8))


def test_a_limit_holds_for_surfaces() -> None:
    pool = SurfacePool(LimitedPool(10_000))
    surface = pool.surface(80, 80, ImageFormat.GRAY8)
    with pytest.raises(Error) as caught:
        pool.surface(80, 80, ImageFormat.GRAY8)
    assert caught.value.code is ErrorCode.NO_SURFACE
    with pytest.raises(Error):
        tn.decode_image(tn.encode_image(surface), pool=pool)
    del surface
    assert pool.surface(80, 80, ImageFormat.GRAY8).width == 80


def test_threads_decode_side_by_side_and_share_a_surface() -> None:
    data = tn.encode_image(pattern(200, 200, 3))
    expected = tn.decode_image(data).array.copy()
    shared = Surface.from_array(pattern(200, 200, 3), copy=True)
    failures: list[BaseException] = []

    def work() -> None:
        try:
            for number in range(20):
                assert (tn.decode_image(data).array == expected).all()
                shared.origin = (number, number)
                assert tn.clip(shared, 1, 1, 9, 9).origin[0] in range(20)
                assert tn.encode_image(shared) == data
                tn.join(shared, shared)
        except BaseException as failure:
            failures.append(failure)

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert failures == []


def test_opencv_takes_surfaces() -> None:
    cv2 = pytest.importorskip("cv2")
    surface = SurfacePool().surface(7, 5, ImageFormat.BGR24)
    surface.array[...] = (10, 20, 30)
    grey = cv2.cvtColor(surface.array, cv2.COLOR_BGR2GRAY)
    assert grey.shape == (5, 7) and (grey == 22).all()
    cv2.rectangle(surface.array, (1, 1), (3, 3), (255, 255, 255), -1)
    assert (surface.array[1:4, 1:4] == 255).all()


def test_torch_takes_surfaces() -> None:
    torch = pytest.importorskip("torch")
    surface = SurfacePool().surface(7, 5, ImageFormat.BGR24)
    tensor = torch.from_dlpack(surface)
    tensor[...] = 9
    assert (surface.array == 9).all()
