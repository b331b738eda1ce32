"""The library's errors as Python exceptions: one class per C++ error class, each also the
built-in exception that fits, carrying the library's message."""

import pickle

import numpy as np
import pytest

import ptmatch

HIERARCHY = {
    # class: (parent, built-in base or None, C++ class)
    "ArchiveError": ("Error", ValueError, "mvArchive::Errors"),
    "UnknownVersion": ("ArchiveError", None, "mvArchive::UnknownVersion"),
    "EndOfData": ("ArchiveError", None, "mvArchive::EndOfData"),
    "BadData": ("ArchiveError", None, "mvArchive::BadData"),
    "MathError": ("Error", ArithmeticError, "mvMathError"),
    "NotSquareMatrix": ("MathError", None, "mvMatrixExt::NotSquareMatrix"),
    "SingularMatrix": ("MathError", None, "mvMatrixExt::SingularMatrix"),
    "AssertionFailed": ("Error", AssertionError, "mvAssertionError"),
    "FitError": ("Error", ArithmeticError, "mvLSPointToPointFitter::Errors"),
    "MatcherError": ("Error", None, "mvPointMatcherDefs::Errors"),
    "BadParams": ("MatcherError", ValueError, "mvPointMatcherDefs::BadParams"),
    "NotTrained": ("MatcherError", RuntimeError, "mvPointMatcherDefs::NotTrained"),
    "NotRun": ("MatcherError", RuntimeError, "mvPointMatcherDefs::NotRun"),
    "InsufficientModelPoints": ("MatcherError", ValueError,
                                "mvPointMatcherDefs::InsufficientModelPoints"),
    "BadInput": ("Error", ValueError, "mvPtToGridMapDefs::BadInput"),
    "RobustGridBadInput": ("Error", ValueError, "mvRobustGridMapDefs::BadInput"),
    "GridCorresponderError": ("Error", None, "mv_PointToGridCorresponderDefs::Errors"),
    "GridInsufficientModelPoints": ("GridCorresponderError", ValueError,
                                    "mv_PointToGridCorresponderDefs::InsufficientModelPoints"),
    "InsufficientMemory": ("GridCorresponderError", MemoryError,
                           "mv_PointToGridCorresponderDefs::InsufficientMemory"),
    "PtMatchTm2BadArgs": ("BadArgs", None, "mv2PtMatchTm::BadArgs"),
    "PerspectiveTm2BadArgs": ("BadArgs", None, "mv2PTm::BadArgs"),
    "PtMatchTm3BadArgs": ("BadArgs", None, "mv3PtMatchTm::BadArgs"),
    "BadArgs": ("Error", ValueError, None),
    "DotError": ("Error", ValueError, "mvDotDefs::BadInput"),
    "ImageFileError": ("Error", ValueError, "mvImageFileDefs::BadFile"),
}


@pytest.mark.parametrize("name", sorted(HIERARCHY))
def test_each_error_class_sits_in_the_hierarchy(name):
    parent, builtin, cpp = HIERARCHY[name]
    cls = getattr(ptmatch, name)
    assert issubclass(cls, getattr(ptmatch, parent))
    assert issubclass(cls, ptmatch.Error) and issubclass(cls, Exception)
    if builtin is not None:
        assert issubclass(cls, builtin)
    if cpp is not None:
        assert cpp in cls.__doc__
    assert cls.__module__ == "ptmatch"


def test_interrupted_is_a_keyboard_interrupt_and_not_an_error():
    assert issubclass(ptmatch.Interrupted, KeyboardInterrupt)
    assert not issubclass(ptmatch.Interrupted, Exception)
    assert "mvAttention::Interrupted" in ptmatch.Interrupted.__doc__


def test_raised_error_carries_message_number_and_class():
    with pytest.raises(ptmatch.BadParams) as err:
        ptmatch.RunParams(max_results=0)
    e = err.value
    assert str(e) == "maxNumResults must be >= 1\n"
    assert e.message == str(e)
    assert e.error_number == 0x10005F00
    assert e.cpp_class == "mvPointMatcherDefs::BadParams"
    assert isinstance(e, ValueError)


def test_not_trained_and_not_run_numbers():
    with pytest.raises(ptmatch.NotTrained) as err:
        ptmatch.PointMatcher().run([(0, 0)])
    assert err.value.error_number == 0x10005F01
    with pytest.raises(ptmatch.NotRun) as err:
        ptmatch.PointMatcherResult().grid_to_data((0, 0))
    assert err.value.error_number == 0x10005F02


def test_assertion_failure_names_the_check():
    with pytest.raises(ptmatch.AssertionFailed) as err:
        ptmatch.ScoreHashing(0, 5)
    e = err.value
    assert e.module == "ptmatch/gridcorr"
    assert "maxScore" in e.expression
    assert isinstance(e.line, int) and e.line > 0
    assert isinstance(e, AssertionError)


def test_unknown_version_names_module_and_line():
    data = bytearray(ptmatch.PtMatchTm2().to_bytes())
    data[0] ^= 0x01  # version 1100 becomes 1101
    with pytest.raises(ptmatch.UnknownVersion) as err:
        ptmatch.PtMatchTm2.from_bytes(bytes(data))
    assert err.value.file == "ptmatch/tm"
    assert isinstance(err.value.line, int)
    assert isinstance(err.value, ValueError)


def test_truncated_archive_is_end_of_data():
    data = ptmatch.PtMatchTm2().to_bytes()
    with pytest.raises(ptmatch.EndOfData):
        ptmatch.PtMatchTm2.from_bytes(data[:-1])


def test_bytes_after_the_object_are_bad_data():
    data = ptmatch.PtMatchTm2().to_bytes()
    with pytest.raises(ptmatch.BadData):
        ptmatch.PtMatchTm2.from_bytes(data + b"\0")


def test_numeric_failures():
    with pytest.raises(ptmatch.MathError):
        ptmatch.PtMatchTm2([[1, 2, 0], [2, 4, 0]])  # singular
    with pytest.raises(ptmatch.FitError):
        ptmatch.PtMatchTm2([(0, 0)], [(1, 1)], 4)  # one pair determines no similarity
    with pytest.raises(ptmatch.SingularMatrix):
        ptmatch.PseudoInverse(2).fit()
    with pytest.raises(ptmatch.NotSquareMatrix):
        ptmatch.MatrixExt(2, 3).ludcmp()


def test_mismatched_point_lists_are_bad_args():
    a, b = [(0, 0), (1, 0)], [(0, 0)]
    with pytest.raises(ptmatch.PtMatchTm2.BadArgs):
        ptmatch.PtMatchTm2().update(a, b)
    with pytest.raises(ptmatch.PerspectiveTm2BadArgs):
        ptmatch.PerspectiveTm2().update(a, b)
    with pytest.raises(ptmatch.BadArgs):
        ptmatch.PtMatchTm3().update([(0, 0, 0), (1, 0, 0)], [(0, 0, 0)])


def test_grid_map_refuses_non_finite_points():
    with pytest.raises(ptmatch.BadInput):
        ptmatch.pt_to_grid_map([(0, 0), (np.nan, 1), (2, 2)], xv=(1, 0), yv=(0, 1), snap_size=1.2)


def test_grid_corresponder_image_with_two_nodes_is_too_few():
    image = np.zeros((3, 3), np.uint8)
    image[0, 0] = image[2, 2] = 1
    with pytest.raises(ptmatch.GridInsufficientModelPoints):
        ptmatch.GridCorresponder().train_image(image)


def test_errors_pickle_with_their_fields():
    with pytest.raises(ptmatch.BadParams) as err:
        ptmatch.RunParams(min_coverage=3)
    copy = pickle.loads(pickle.dumps(err.value))
    assert type(copy) is ptmatch.BadParams
    assert str(copy) == str(err.value)
    assert copy.error_number == err.value.error_number
