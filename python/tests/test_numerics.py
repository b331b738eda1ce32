"""PseudoInverse and MatrixExt."""

import numpy as np
import pytest

import ptmatch


def test_pseudo_inverse_solves_a_line_fit_incrementally():
    p = ptmatch.PseudoInverse(2)
    assert p.num_params == 2
    for x in range(5):
        p.update([x, 1.0], 3.0 * x - 2.0)  # y = 3 x - 2
    np.testing.assert_allclose(p.fit(), [3.0, -2.0], atol=1e-12)
    p.update([10.0, 1.0], 28.0)  # more observations may follow a fit
    np.testing.assert_allclose(p.fit(), [3.0, -2.0], atol=1e-12)
    # The matrix part holds the normal matrix A^T A.
    assert p.rows == 2 and p.cols == 2
    assert p[1, 1] == 6.0


def test_pseudo_inverse_reset_and_resize():
    p = ptmatch.PseudoInverse(3)
    p.update([1, 2, 3], 4)
    p.reset()
    assert p[0, 0] == 0.0
    p.resize(1)
    assert p.num_params == 1
    with pytest.raises(ptmatch.AssertionFailed):
        p.update([], 1.0)  # fewer coefficients than parameters


def test_matrix_ext_from_an_array_and_back():
    a = np.array([[4.0, 3.0], [6.0, 3.0]])
    m = ptmatch.MatrixExt(a)
    assert (m.rows, m.cols) == (2, 2) and m.is_bound
    np.testing.assert_array_equal(np.asarray(m), a)
    np.testing.assert_array_equal(m.row(1), [6, 3])
    m[0, 1] = 5.0
    assert m[0, 1] == 5.0
    with pytest.raises(ptmatch.AssertionFailed):
        m[2, 0]


def test_matrix_ext_lu_solves():
    a = np.array([[2.0, 1.0, 1.0], [4.0, -6.0, 0.0], [-2.0, 7.0, 2.0]])
    b = np.array([5.0, -2.0, 9.0])
    m = ptmatch.MatrixExt(a)
    indx = m.ludcmp()
    np.testing.assert_allclose(m.lubksb(indx, b), np.linalg.solve(a, b), atol=1e-12)


def test_matrix_ext_gauss_jordan_inverts_and_solves():
    a = np.array([[2.0, 1.0], [1.0, 3.0]])
    m = ptmatch.MatrixExt(a)
    rhs = ptmatch.MatrixExt([[1.0], [2.0]])
    m.gaussj(rhs)
    np.testing.assert_allclose(np.asarray(m), np.linalg.inv(a), atol=1e-12)
    np.testing.assert_allclose(np.asarray(rhs)[:, 0], np.linalg.solve(a, [1.0, 2.0]), atol=1e-12)


def test_matrix_ext_singular_and_empty():
    with pytest.raises(ptmatch.SingularMatrix):
        ptmatch.MatrixExt([[1.0, 2.0], [0.0, 0.0]]).ludcmp()
    empty = ptmatch.MatrixExt()
    assert (empty.rows, empty.cols) == (0, 0) and not empty.is_bound
    resized = ptmatch.MatrixExt(1, 1)
    resized.resize(2, 3)
    np.testing.assert_array_equal(resized.to_array(), np.zeros((2, 3)))
    resized.invert()  # does nothing
    np.testing.assert_array_equal(resized.to_array(), np.zeros((2, 3)))
