"""The image analysis against SciPy and NumPy, each family once, and every threaded form against its serial one."""

import numpy as np
import pytest
from scipy import ndimage

from kestrum import native as k
import records

F, M = k.FALSE, k.VORL_MISSING_VALUE
SHAPE, SAMPLING = (5, 7, 9), (0.7, 1.3, 1.0)  # z, y, x
FIELD = ndimage.gaussian_filter(np.random.default_rng(5).normal(size=SHAPE), 0.6)
GAPS = np.where(np.random.default_rng(6).random(SHAPE) < 0.1, M, FIELD)
BODY = FIELD > 0.0
STRUCTURES = {n: ndimage.generate_binary_structure(3, rank) for rank, n in ((1, 6), (2, 18), (3, 26))}
SKEW = np.zeros((5, 5, 5), dtype=bool)  # an element without symmetry
SKEW[(2, 2, 3, 2), (2, 4, 1, 2), (3, 2, 3, 2)] = True


def image_of(values):
    return records.image(records.grid(*values.shape[::-1], *SAMPLING[::-1]), ["v"], values)


def analyse(call, values):
    """What call(image, result) makes of the values."""
    image, result = image_of(values), k.vorl_image()
    k.VORLInitImage(result)
    assert call(image, result) == 0
    assert np.array_equal(records.reals(image.var, values.size), values.ravel()), "the input has changed"
    return records.reals(result.var, result.nxyzv).reshape(result.grid.nz, result.grid.ny, result.grid.nx)


def ints(values):
    vector = k.new_int_array(len(values))
    k.vorl_set_int_vector_from_array(vector, 0, np.asarray(values, dtype=np.intc))
    return vector


def read_ints(vector, n):
    return np.array([k.int_array_getitem(vector, i) for i in range(n)])


COUNT = ints([0])
LOWER, UPPER = k.new_real_array(1), k.new_real_array(1)  # 0.0 both
k.real_array_setitem(UPPER, 0, np.inf)
ABOVE_ZERO = (0, F, 1, LOWER, UPPER, k.TRUE, F, COUNT)  # marks the nodes of BODY
LAGS = (-2, 2, 1, -3, 3, 2, 0, 1, 1)  # x, y, z: minimal, maximal, step
STATISTICS = {
    "Variogram": lambda a, b: 0.5 * np.mean((a - b) ** 2),
    "Covariance": lambda a, b: np.cov(a, b, bias=True)[0, 1],
    "CovarianceNotCentred": lambda a, b: np.mean(a * b),
    "Correlogram": lambda a, b: np.corrcoef(a, b)[0, 1],
    "Transiogram": lambda a, b: np.mean(b[a > 0] > 0),
    "ConnectivityFunction0": lambda a, b: np.mean((a == b) & (a > 0)),
    "ConnectivityFunction1": lambda a, b: np.mean(b[a > 0] == a[a > 0]),
    "ConnectivityFunction2": lambda a, b: np.mean((a == b)[(a > 0) & (b > 0)]),
}


def two_point(values, statistic):
    """A statistic(tails, heads) for each of the LAGS."""
    answer = []
    for lag in ((hz, hy, hx) for hz in (0, 1) for hy in (-3, -1, 1, 3) for hx in range(-2, 3)):
        tails, heads = ([slice(max(0, s * h), n + min(0, s * h)) for h, n in zip(lag, SHAPE)] for s in (-1, 1))
        a, b = values[tuple(tails)], values[tuple(heads)]
        answer.append(statistic(*(side[(a != M) & (b != M)] for side in (a, b))))
    return np.reshape(answer, (2, 4, 5))


def gamma_of(body, neighbours):
    sizes = np.bincount(ndimage.label(body, STRUCTURES[neighbours])[0].ravel())[1:]
    return np.sum(sizes**2.0) / sizes.sum() ** 2 if len(sizes) else k.VORL_CONNECTIVITY_GAMMA_VALUE_IF_NO_GEOBODY


def cases():
    """Function, input, arguments before the images, arguments after them, expected."""
    nodes = np.argwhere(np.ones(SHAPE)) * SAMPLING
    city_block = np.abs(nodes[:, None] - nodes[BODY.ravel()]).sum(axis=2).min(axis=1).reshape(SHAPE)
    euclidean = ndimage.distance_transform_edt(~BODY, SAMPLING)
    inside = ndimage.distance_transform_edt(ndimage.binary_erosion(BODY, border_value=1), SAMPLING)
    steps, steps_inside = (ndimage.distance_transform_cdt(side, "taxicab") for side in (~BODY, BODY))
    means = np.pad(ndimage.uniform_filter(FIELD, (5, 3, 3))[2:-2, 1:-1, 1:-1], ((2,), (1,), (1,)), constant_values=M)
    window = np.pad(FIELD, ((0,), (2,), (1,)), constant_values=M)[1:2, 4:11, :6]
    for element in (STRUCTURES[26], SKEW, STRUCTURES[6]):
        z, y, x = np.argwhere(element).T - len(element) // 2
        shifts = (len(x), ints(x), ints(y), ints(z))
        centre = np.pad([[[True]]], len(element) // 2)  # to SciPy, but not here, a node must be listed itself to stay
        reached = ndimage.binary_dilation(BODY, (element | centre)[::-1, ::-1, ::-1], iterations=2)
        yield "ImageDilate", BODY, (), (*shifts, 2, F), reached
        left = ndimage.binary_erosion(BODY, element | centre, iterations=2, border_value=1)
        yield "ImageErode", BODY, (), (*shifts, 2, F), left
    yield "ImageIndicator", GAPS, (), ABOVE_ZERO, np.where(GAPS == M, M, GAPS > 0.0)
    for name, distance in (("ImageDistanceL1", city_block), ("ImageDistanceEuclidean", euclidean)):
        yield name, BODY, (), (), distance
        yield name + "BruteForce", BODY, (), (F,), distance
    yield "ImageDistanceEuclideanSign", BODY, (), (), euclidean - inside
    yield "ImageDistanceByDilation", BODY, (), shifts, steps - steps_inside + BODY
    yield "MovingBoxAverageImage", FIELD, (3.0, 3.9, 3.5), (F, 0.0, F), means
    yield "ResizeImage", FIELD, (), (-1, 4, 2, 8, 1, 1, 0, 0), window
    for name, steps, shape in (("Reduce", (2, 3, 0), (5, 3, 5)), ("Expand", (0, 2, 3), (13, 13, 9))):
        yield "ImagePyramid" + name, np.full(SHAPE, 3.25), (), (*steps, -1.0, -1.0, -1.0, -1.0), np.full(shape, 3.25)
    for name, statistic in STATISTICS.items():
        values = ndimage.label(BODY)[0] if name.startswith("Connectivity") else GAPS
        yield "Image" + name, values, (), (0, *LAGS, F), two_point(values, statistic)
    for neighbours, structure in STRUCTURES.items():  # both sides number geobodies by their first nodes
        yield f"ImageGeobody{neighbours}", FIELD, (), ABOVE_ZERO, ndimage.label(BODY, structure)[0]


@pytest.mark.parametrize("name, values, before, after, expected", [pytest.param(*case, id=case[0]) for case in cases()])
def test_images(name, values, before, after, expected):
    serial = analyse(lambda *images: getattr(k, "VORL" + name)(*before, *images, *after), values)
    assert serial.shape == expected.shape
    np.testing.assert_allclose(serial, expected, rtol=1e-11, atol=1e-13)
    threaded = getattr(k, "VORLOMP" + name, None)
    for nthread in (1, 2, 3) if threaded else ():
        assert np.array_equal(analyse(lambda *images: threaded(*before, *images, *after, nthread), values), serial)


@pytest.mark.parametrize("neighbours", STRUCTURES)
def test_geobodies_as_vectors(neighbours):
    labels, n = ndimage.label(BODY, STRUCTURES[neighbours])
    vector, pointers = k.new_int_array(labels.size), [k.new_intp_array(1) for _ in range(4)]  # of int, and of int *
    assert getattr(k, f"VORLImageGeobody{neighbours}Vector")(image_of(FIELD), vector, *ABOVE_ZERO) == 0
    assert np.array_equal(read_ints(vector, labels.size), labels.ravel()) and k.int_array_getitem(COUNT, 0) == n
    assert k.VORLImageGeobodySize(image_of(labels), COUNT, *pointers) == 0
    sizes, *extents = (read_ints(k.intp_array_getitem(pointer, 0), n) for pointer in pointers)
    boxes = [[side.stop - side.start for side in box[::-1]] for box in ndimage.find_objects(labels)]
    assert np.array_equal(sizes, np.bincount(labels.ravel())[1:]) and np.array_equal(np.transpose(extents), boxes)
    gamma, used, (number, *largest) = k.new_double_array(1), k.new_real_array(1), [k.new_int_array(1) for _ in range(5)]
    assert k.VORLImageConnectivityGlobalIndicator(image_of(labels), 0, number, COUNT, pointers[0], gamma) == 0
    assert k.double_array_getitem(gamma, 0) == pytest.approx(gamma_of(BODY, neighbours), rel=1e-14)
    curve = getattr(k, f"VORLImageMaxGeobody{neighbours}SizeCurve")
    assert curve(image_of(-FIELD), 1, 0.0, 1.0, used, *largest, F) == 0  # BODY: no node holds 0.0
    assert [k.int_array_getitem(value, 0) for value in largest] == [max(sizes), *(max(e) for e in extents)]


@pytest.mark.parametrize("neighbours", STRUCTURES)
def test_gamma_curves(neighbours):
    signed, pointers = analyse(k.VORLImageDistanceEuclideanSign, BODY), [k.new_realp_array(1) for _ in range(3)]
    curve = f"Connectivity{neighbours}GlobalIndicatorCurve"
    assert getattr(k, "VORLImageDistanceEuclidean" + curve)(image_of(BODY), 0.5, COUNT, *pointers, F) == 0
    n = k.int_array_getitem(COUNT, 0)
    thresholds, *found = answer = [records.reals(k.realp_array_getitem(pointer, 0), n) for pointer in pointers]
    expected = [[gamma_of(signed <= t, neighbours), gamma_of(signed > t, neighbours)] for t in thresholds]
    np.testing.assert_allclose(np.transpose(found), expected, rtol=1e-14)
    for form, threads in (("VORL", ()), ("VORLOMP", (2,))):
        vectors = [k.new_real_array(n) for _ in range(3)]
        assert getattr(k, form + "Image" + curve)(image_of(signed), n, thresholds[0], 0.5, *vectors, F, *threads) == 0
        assert np.array_equal([records.reals(values, n) for values in vectors], answer)


@pytest.mark.parametrize("form, threads", [("VORL", ()), ("VORLOMP", (2,))])
def test_euler_numbers(form, threads):
    body = np.random.default_rng(7).random((1, 9, 11)) < 0.5
    below, above, used = k.new_int_array(1), k.new_int_array(1), k.new_real_array(1)
    series = (image_of(~body), 1, 0.5, 1.0, used)
    assert getattr(k, form + "ImageConnectivity6EulerNumberCurve")(*series, below, above, F, *threads) == 0
    for (labels, n), answer in ((ndimage.label(body), below), (ndimage.label(~body), above)):
        expected = 0
        for cells in (np.pad(labels[0] == i, 1) for i in range(1, n + 1)):  # vertices less edges plus cells of each
            along_x, along_y = cells[:, 1:] | cells[:, :-1], cells[1:] | cells[:-1]
            expected += np.sum(along_x[1:] | along_x[:-1]) - along_x.sum() - along_y.sum() + cells.sum()
        assert getattr(k, form + "ImageConnectivityEulerNumber")(image_of(labels), 0, COUNT, *threads) == 0
        assert k.int_array_getitem(COUNT, 0) == k.int_array_getitem(answer, 0) == expected
