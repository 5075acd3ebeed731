"""Pickling and the copy module, within a process and across its border."""

import copy
import multiprocessing
import pickle

import pytest
import vellum

SAMPLES = [
    vellum.double([[0.1, -0.0], [float("inf"), 1e300]]),
    vellum.int64([[[2**63 - 1], [-(2**63)]]]),
    vellum.uint8([[[1, 2], [3, 4]], [[5, 6], [7, 255]]]),
    vellum.logical([[True, False]]),
    vellum.single([1 + 2j, 0.1], is_complex=True),
    vellum.int16([[1 + 2j], [3]], is_complex=True),
    vellum.double(),
]


@pytest.mark.parametrize("sample", SAMPLES, ids=repr)
def test_every_copy_has_the_class_shape_and_values(sample):
    copies = [pickle.loads(pickle.dumps(sample, protocol))
              for protocol in range(pickle.HIGHEST_PROTOCOL + 1)]
    for twin in [*copies, copy.copy(sample), *copy.deepcopy([sample])]:
        assert (repr(twin), twin.size, twin == sample) == (repr(sample), sample.size, True)
        assert len(twin) == 0 or twin.buffer_info()[0] != sample.buffer_info()[0]


def test_the_reduced_form_follows_the_integer_indices_alone():
    array = vellum.int8([[1, 2], [3, 4], [5, 6]])
    assert array[1:2].__reduce__() == (vellum.int8, ({}, [[1, 2], [3, 4], [5, 6]]))
    assert array[1].__reduce__() == array[1][1:].__reduce__() == (vellum.int8, ({}, [3, 4]))
    assert vellum.single([1j], is_complex=True).__reduce__() == (
        vellum.single, ({"is_complex": True}, [[1j]]))


def test_across_a_process_border():
    with multiprocessing.get_context("spawn").Pool(1) as pool:
        for sample in SAMPLES:
            assert repr(pool.apply(copy.deepcopy, (sample,))) == repr(sample)
        with pytest.raises(vellum.ShapeError, match=r"initializer \(3\) do not match .* \(2, 2\)"):
            pool.apply(vellum.double, ([1, 2, 3],), {"size": (2, 2)})
