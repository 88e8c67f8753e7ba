#!/usr/bin/env python3
"""Image analysis beside SciPy, scikit-image and NumPy, variograms of points and kriging beside gstat, in one run and one
thread.

For each task the results of both sides are compared first, then both are timed in turns. The table gives the least
processor time of each, how many times longer theirs takes, and how many times sooner ours ends with two threads (least
elapsed times, which need a quiet machine). All inputs are ready before: doubles for ours (where the task begins with
"ks.", the array of theirs), booleans or doubles for theirs. The target is the ratio that ours should reach. gstat runs
once, through Rscript, and is left out where there is none.

    PYTHONPATH=build/release/python python3 benchmarks/side_by_side.py [repetitions]
"""

import shutil
import subprocess
import sys
import tempfile
import time
from pathlib import Path

import numpy as np
from scipy import fft, ndimage
from skimage.measure import euler_number
from skimage.transform import downscale_local_mean

import kestrum as ks
from kestrum import native as k

sys.path.insert(0, str(Path(__file__).resolve().parents[1] / "tests" / "python"))
import records

REPETITIONS = int(sys.argv[1]) if len(sys.argv) > 1 else 5
HEADER = ("", "ours ms", "ns/node", "theirs ms", "ratio", "target", "2 threads")
SPACING = {"sz": 0.7, "sy": 1.3, "sx": 1.0}
QUIET = k.FALSE


def noise(shape, sigma):
    """Gaussian noise of which half the nodes lie at or below 0, white or smoothed."""
    values = ndimage.gaussian_filter(np.random.default_rng(1).normal(size=shape), sigma, mode="wrap")
    return values - np.median(values)


def kind(sigma):
    return "smooth" if sigma else "salt and pepper"


class Image:
    """An image of the values, which are in the order z, y, x."""

    def __init__(self, values, **spacing):
        nz, ny, nx = values.shape
        self.record = records.image(records.grid(nx, ny, nz, **spacing), ["v"], values)

    def __del__(self):
        k.VORLFreeImage(self.record)
        k.free_VORL_IMAGE(self.record)


class Result:
    """The image that an analysis makes."""

    def __init__(self, function, image, *arguments, before=()):
        self.record = k.vorl_image()
        k.VORLInitImage(self.record)
        status = function(*before, image.record, self.record, *arguments)
        assert status == 0, k.vorl_get_error_message(-status)

    def __array__(self):
        grid = self.record.grid
        return records.reals(self.record.var, grid.nxyz).reshape(grid.nz, grid.ny, grid.nx)

    def __del__(self):
        k.VORLFreeImage(self.record)


def int_vector(values):
    vector = k.new_int_array(len(values))
    k.vorl_set_int_vector_from_array(vector, 0, np.asarray(values, dtype=np.intc))
    return vector


def read_ints(vector, shape):
    values = np.empty(np.prod(shape), dtype=np.intc)
    k.vorl_get_array_from_int_vector(vector, 0, values)
    return values.reshape(shape)


def milliseconds(call):
    """Processor time and elapsed time of a call; releasing its result does not count on either side."""
    elapsed, processor = time.perf_counter(), time.process_time()
    result = call()
    times = time.process_time() - processor, time.perf_counter() - elapsed
    del result
    return 1e3 * np.array(times)


def compare(title, nnode, ours, theirs, target=None, threaded=None, repetitions=REPETITIONS):
    calls = [ours, theirs] + ([threaded] if threaded else [])
    times = np.min([[milliseconds(call) for call in calls] for _ in range(repetitions)], axis=0)
    mine, other = times[0, 0], times[1, 0]
    cells = [title, f"{mine:.1f}", f"{1e6 * mine / nnode:.2f}", f"{other:.1f}", f"{other / mine:.2f}"]
    cells += [f"{target:g}" if target else "", f"{times[0, 1] / times[2, 1]:.2f}" if threaded else ""]
    print_row(cells)


def print_row(cells):
    print(f"{cells[0]:<44}" + "".join(f"{cell:>11}" for cell in cells[1:]), flush=True)


def label(n, sigma):
    values = noise((n, n, n), sigma)
    image, below = Image(values), values <= 0.0
    labels, count = k.new_int_array(values.size), k.new_int_array(1)
    interval = [k.new_real_array(1) for _ in range(2)]
    for bound, value in zip(interval, (-np.inf, 0.0)):
        k.real_array_setitem(bound, 0, value)

    for rank, neighbours, target in ((1, 6, 2.0), (2, 18, 2.2), (3, 26, 3.3)):
        function = getattr(k, f"VORLImageGeobody{neighbours}Vector")
        structure = ndimage.generate_binary_structure(3, rank)

        def ours():
            return function(image.record, labels, 0, k.FALSE, 1, *interval, k.FALSE, k.FALSE, count)

        def theirs():
            return ndimage.label(below, structure)

        assert ours() == 0
        number, (expected, n_expected) = read_ints(labels, values.shape), theirs()
        assert k.int_array_getitem(count, 0) == n_expected
        of_label = np.zeros(n_expected + 1, dtype=np.intc)
        of_label[number] = expected  # the label of theirs that goes with each of ours
        assert np.array_equal(of_label[number], expected) and len(np.unique(of_label)) == n_expected + 1
        compare(f"label, {neighbours} neighbours, {n}^3 {kind(sigma)}", values.size, ours, theirs, target)
    for vector in (labels, count):
        k.delete_int_array(vector)
    for bound in interval:
        k.delete_real_array(bound)


def arrays(n, sigma):
    """The package on NumPy arrays, from the call to the result."""
    below = noise((n, n, n), sigma) <= 0.0
    for rank, neighbours in ((1, 6), (2, 18), (3, 26)):
        structure = ndimage.generate_binary_structure(3, rank)
        labels, count = ks.label(below, neighbours)
        expected, n_expected = ndimage.label(below, structure)
        pairs = np.unique(labels.astype(np.int64) * (n_expected + 1) + expected)
        assert count == n_expected and len(pairs) == count + 1
        compare(f"ks.label, {neighbours} neighbours, {n}^3 {kind(sigma)}", below.size, lambda: ks.label(below, neighbours, threads=1),
                lambda: ndimage.label(below, structure), 4.0, lambda: ks.label(below, neighbours, threads=2))
    for rank, neighbours in ((1, 6), (3, 26)):
        assert ks.euler_number(below, neighbours) == euler_number(below, rank)
        compare(f"ks.euler_number, {neighbours} neighbours, {n}^3 {kind(sigma)}", below.size,
                lambda: ks.euler_number(below, neighbours, threads=1), lambda: euler_number(below, rank), 10.0,
                lambda: ks.euler_number(below, neighbours, threads=2))
    squares = np.arange(-5, 6) ** 2
    ball = squares[:, None, None] + squares[:, None] + squares <= 25
    for title, element, structure, target in (("cube of 3", 3, np.ones((3, 3, 3)), 8.0), ("ball of radius 5", ball, ball, 20.0)):
        for tool, other in ((ks.dilate, ndimage.binary_dilation), (ks.erode, lambda mask, shape: ndimage.binary_erosion(mask, shape, border_value=1))):
            assert np.array_equal(tool(below, element), other(below, structure))
            compare(f"ks.{tool.__name__}, {title}, {n}^3 {kind(sigma)}", below.size, lambda: tool(below, element, threads=1),
                    lambda: other(below, structure), target, lambda: tool(below, element, threads=2), 1 if element is ball else REPETITIONS)


def label_picture(n):
    picture = (noise((n, n), 4.0) <= 0.0).astype(np.uint8)
    assert ks.label(picture)[1] == ndimage.label(picture)[1]
    compare(f"ks.label, 4 neighbours, {n}^2 uint8", picture.size, lambda: ks.label(picture, threads=1), lambda: ndimage.label(picture), 4.0,
            lambda: ks.label(picture, threads=2))


def distance_of_array(n, sigma):
    """The package on NumPy arrays; a signed map against a plain one."""
    features = noise((n, n, n), sigma) <= 0.0
    background, spacing = ~features, (1.5, 1.0, 0.5)

    def ours(threads=1, **options):
        return ks.distance(features, spacing, dtype="float32", threads=threads, **options)

    def euclidean():
        return ndimage.distance_transform_edt(background, spacing)

    def chamfer():
        return ndimage.distance_transform_cdt(background, "taxicab")  # which knows no spacing

    assert np.allclose(ours(), euclidean()) and np.array_equal(ks.distance(features, metric="manhattan"), chamfer())
    title = f"{n}^3 {kind(sigma)}"
    compare(f"ks.distance, {title}", features.size, ours, euclidean, 10.0, lambda: ours(2))
    compare(f"ks.distance, manhattan, {title}", features.size, lambda: ours(metric="manhattan"), chamfer, 2.0,
            lambda: ours(2, metric="manhattan"))
    compare(f"ks.distance, signed, beside plain, {title}", features.size, lambda: ours(signed=True), ours, 1 / 1.3,
            lambda: ours(2, signed=True))


def nearest_label(n):
    """Sixty labels; theirs finds the place of the nearest node."""
    random = np.random.default_rng(1)
    labels = np.zeros((n, n, n), np.int32)
    labels.flat[random.integers(0, labels.size, 3000)] = random.integers(1, 61, 3000)

    def theirs():
        distances, places = ndimage.distance_transform_edt(labels == 0, (1.5, 1.0, 0.5), return_indices=True)
        return distances, labels[tuple(places)]

    assert np.allclose(ks.nearest_label(labels, (1.5, 1.0, 0.5))[0], theirs()[0])
    compare(f"ks.nearest_label, {n}^3", labels.size, lambda: ks.nearest_label(labels, (1.5, 1.0, 0.5), threads=1), theirs, 3.0,
            lambda: ks.nearest_label(labels, (1.5, 1.0, 0.5), threads=2))


def mean_of_array(n):
    values = noise((n, n, n), 0.0)
    inner = (slice(3, -3),) * 3
    assert np.allclose(ks.box_mean(values, 7)[inner], ndimage.uniform_filter(values, 7)[inner], atol=1e-12)
    compare(f"ks.box_mean, 7^3, {n}^3", values.size, lambda: ks.box_mean(values, 7, threads=1),
            lambda: ndimage.uniform_filter(values, 7), 2.0, lambda: ks.box_mean(values, 7, threads=2))


def halves(n):
    values = noise((n, n, n), 0.0)
    assert np.allclose(ks.resample(values, n // 2), downscale_local_mean(values, 2))
    compare(f"ks.resample, {n}^3 to half", values.size, lambda: ks.resample(values, n // 2, threads=1), lambda: downscale_local_mean(values, 2), 3.0,
            lambda: ks.resample(values, n // 2, threads=2))


def statistics(n, sigma):
    """Beside one labelling, one pair of transforms, and Lloyd's algorithm of scikit-learn, if there is one."""
    values = noise((n, n, n), sigma)
    below, thresholds = values <= 0.0, np.linspace(values.min(), values.max(), 21)
    for connectivity in (6, 26):
        labels = ks.label(values > thresholds[9], connectivity)[0]
        sizes = np.bincount(labels.ravel())[1:].astype(float)
        assert np.isclose(ks.connectivity_curve(values, thresholds, connectivity)[9], (sizes**2).sum() / sizes.sum() ** 2)
        compare(f"ks.connectivity_curve, {connectivity}, {n}^3 {kind(sigma)}: label", values.size,
                lambda: ks.connectivity_curve(values, thresholds, connectivity, threads=1), lambda: ks.label(below, connectivity, threads=1), 0.25)


def lags_by_transforms(n, lag_max):
    values = noise((n, n), 3.0)
    padded = [fft.next_fast_len(n + lag_max, True)] * 2
    for tool, name in ((ks.variogram_map, "gamma"), (ks.covariance_map, "covariance")):
        assert np.allclose(tool(values, lag_max, method="fft")[name], tool(values, lag_max)[name])
        compare(f"ks.{tool.__name__}, fft, {n}^2, lags to {lag_max}: rfft2, irfft2", values.size,
                lambda: tool(values, lag_max, method="fft", threads=1), lambda: fft.irfft2(fft.rfft2(values, padded), padded), 0.77,
                lambda: tool(values, lag_max, method="fft", threads=2))


def transitions(n, lag_max):
    """Of four categories, beside the correlations of their indicators by transforms."""
    values = noise((n, n), 3.0)
    facies = np.digitize(values, np.quantile(values, (0.25, 0.5, 0.75))).astype(np.uint8)
    padded = [fft.next_fast_len(n + lag_max, True)] * 2

    def theirs():
        spectra = [fft.rfft2((facies == k).astype(float), padded) for k in range(4)]
        lags = np.arange(-lag_max, lag_max + 1)
        return np.rint([[fft.irfft2(a.conj() * b, padded)[np.ix_(lags, lags)] for b in spectra] for a in spectra])

    found = ks.transiogram(facies, lag_max)
    assert np.array_equal(np.rint(found.probability * found.pairs).transpose("from", "to", ...), theirs())
    for method in ("pairs", "fft"):
        compare(f"ks.transiogram, 4 categories, {n}^2, lags to {lag_max}, {method}", facies.size,
                lambda: ks.transiogram(facies, lag_max, method=method, threads=1), theirs, None,
                lambda: ks.transiogram(facies, lag_max, method=method, threads=2))


def clusters(n, features, number):
    try:
        from sklearn.cluster import KMeans
        from threadpoolctl import threadpool_limits
    except ImportError:
        print("ks.kmeans: no scikit-learn here")
        return
    random = np.random.default_rng(1)
    samples = random.normal(size=(number, features))[random.integers(number, size=n)] + random.normal(size=(n, features))
    start = samples[:number].copy()
    with threadpool_limits(1):
        compare(f"ks.kmeans, {n:,} x {features}, {number} clusters", n, lambda: ks.kmeans(samples, start, threads=1),
                lambda: KMeans(number, init=start, n_init=1, algorithm="lloyd").fit(samples), 3.0)


def distance(n, sigma):
    features = noise((n, n, n), sigma) <= 0.0
    background = ~features
    cases = (
        ("Euclidean", SPACING, 6.0, lambda: ndimage.distance_transform_edt(background, list(SPACING.values()))),
        ("L1", {}, None, lambda: ndimage.distance_transform_cdt(background, "taxicab")),  # which knows no spacing
    )
    for name, spacing, target, theirs in cases:
        serial, threaded = getattr(k, "VORLImageDistance" + name), getattr(k, "VORLOMPImageDistance" + name)
        image = Image(features, **spacing)
        assert np.allclose(Result(serial, image), theirs())
        title = f"{name} distance, {n}^3 {kind(sigma)}"
        compare(title, features.size, lambda: Result(serial, image), theirs, target, lambda: Result(threaded, image, 2))


def morphology(n, sigma):
    body = noise((n, n, n), sigma) <= 0.0
    image = Image(body)
    offsets = [int_vector(shift.ravel()) for shift in np.mgrid[-1:2, -1:2, -1:2]]
    arguments = (27, *offsets, 1, QUIET)
    block = np.ones((3, 3, 3), dtype=bool)
    # The outside of the grid neither dilates nor erodes.
    for name, function, border in (("Dilate", ndimage.binary_dilation, 0), ("Erode", ndimage.binary_erosion, 1)):
        serial, threaded = getattr(k, "VORLImage" + name), getattr(k, "VORLOMPImage" + name)

        def ours():
            return Result(serial, image, *arguments)

        def theirs():
            return function(body, block, border_value=border)

        assert np.array_equal(ours(), theirs())
        title = f"{name.lower()} by 27 offsets, {n}^3 {kind(sigma)}"
        compare(title, body.size, ours, theirs, 2.0, lambda: Result(threaded, image, *arguments, 2))
    for vector in offsets:
        k.delete_int_array(vector)


def box_mean(n):
    values = noise((n, n, n), 0.0)
    image = Image(values)
    arguments, before = (k.FALSE, 0.0, QUIET), (7.0, 7.0, 7.0)

    def ours():
        return Result(k.VORLMovingBoxAverageImage, image, *arguments, before=before)

    def theirs():
        return ndimage.uniform_filter(values, 7)

    inside = (slice(3, -3),) * 3
    assert np.allclose(np.asarray(ours())[inside], theirs()[inside])
    compare(f"mean over 7x7x7 nodes, {n}^3", values.size, ours, theirs, 1.0,
            lambda: Result(k.VORLOMPMovingBoxAverageImage, image, *arguments, 2, before=before))


def euler(n):
    below = noise((1, n, n), (0.0, 4.0, 4.0)) <= 0.0
    # Geobodies across corners: nodes that touch have one label, so that the count is that of the image.
    image = Image(ndimage.label(below, np.ones((3, 3, 3)))[0])
    number = k.new_int_array(1)

    def ours():
        return k.VORLImageConnectivityEulerNumber(image.record, 0, number)

    def theirs():
        return euler_number(below[0], connectivity=2)

    assert ours() == 0 and k.int_array_getitem(number, 0) == theirs()
    compare(f"Euler number of geobodies, {n}^2", below.size, ours, theirs, 3.0,
            lambda: k.VORLOMPImageConnectivityEulerNumber(image.record, 0, number, 2))
    k.delete_int_array(number)


def variogram(n, lag_max):
    values = noise((1, n, n), (0.0, 3.0, 3.0))
    image = Image(values)
    lags = (-lag_max, lag_max, 1)
    arguments = (0, *lags, *lags, 0, 0, 1, QUIET)

    def ours():
        return Result(k.VORLImageVariogram, image, *arguments)

    def theirs():
        """Half of the map, and its mirror image."""
        field, size = values[0], 2 * lag_max + 1
        answer = np.empty((1, size, size))
        for hy in range(lag_max + 1):
            for hx in range(-lag_max, lag_max + 1):
                tail = field[: n - hy, max(0, -hx) : n - max(0, hx)]
                head = field[hy:, max(0, hx) : n + min(0, hx)]
                difference = (tail - head).ravel()
                answer[0, lag_max + hy, lag_max + hx] = 0.5 * np.dot(difference, difference) / difference.size
        answer[0, :lag_max] = answer[0, :lag_max:-1, ::-1]
        return answer

    assert np.allclose(ours(), theirs())
    compare(f"variogram map, {n}^2, lags to {lag_max}", values.size, ours, theirs, None,
            lambda: Result(k.VORLOMPImageVariogram, image, *arguments, 2), min(REPETITIONS, 3))


# Times itself, for R takes long to start.
VARIOGRAM_IN_R = """
suppressMessages({library(sp); library(gstat)})
arguments <- commandArgs(trailingOnly = TRUE)
data <- read.csv(arguments[1])
coordinates(data) <- ~x+y
width <- as.numeric(arguments[2])
time <- system.time(v <- variogram(value ~ 1, data, cutoff = 15 * width, width = width))
cat(time["user.self"] + time["sys.self"], "\\n")
write.table(cbind(v$np, v$dist, v$gamma), row.names = FALSE, col.names = FALSE)
"""


def point_variogram(n):
    """Uniform points, 15 lags to a tenth of the side; gstat runs once, for it takes a minute."""
    title = f"variogram of {n:,} points (per point)"
    if shutil.which("Rscript") is None:
        print(f"{title}: no Rscript here")
        return
    random = np.random.default_rng(1)
    places = random.uniform(0.0, 1.0, (n, 2))
    points = ks.Points(places, np.sin(6.0 * places[:, 0]) + random.normal(size=n))
    width = 0.1 / 15

    def seconds(**options):
        """Processor time and elapsed time: the work is done on threads of its own."""
        elapsed, processor = time.perf_counter(), time.process_time()
        found = ks.variogram(points, lag=width, **options)
        return time.process_time() - processor, time.perf_counter() - elapsed, found

    with tempfile.TemporaryDirectory() as folder:
        np.savetxt(folder + "/points.csv", np.column_stack((places, points.values)), delimiter=",", header="x,y,value", comments="",
                   fmt="%.17g")
        answer = subprocess.run(["Rscript", "-e", VARIOGRAM_IN_R, folder + "/points.csv", repr(width)], check=True, capture_output=True, text=True)
    first, *table = answer.stdout.splitlines()
    expected = np.array([list(map(float, line.split())) for line in table])
    found = seconds(threads=1)[2]
    assert np.array_equal(found.pairs[0], expected[:, 0])
    assert np.allclose(found.lag[0], expected[:, 1], 1e-9) and np.allclose(found.gamma[0], expected[:, 2], 1e-9)
    runs = [[seconds(threads=1)[:2], seconds(threads=1, azimuth=[0, 45, 90, 135])[:2], seconds(threads=2)[:2]]
            for _ in range(REPETITIONS)]
    (mine, one), (four, _), (_, two) = np.min(runs, axis=0)
    print_row([title, f"{1e3 * mine:.1f}", f"{1e9 * mine / n:.0f}", f"{1e3 * float(first):.1f}", f"{float(first) / mine:.1f}", "5",
               f"{one / two:.2f}"])
    print_row(["  four directions (theirs: all directions)", f"{1e3 * four:.1f}", f"{1e9 * four / n:.0f}"])


def leave_one_out(n):
    """All data used: beside the same closed form (O. Dubrule, Cross validation of kriging in a unique neighborhood, Math. Geol. 15,
    1983) in NumPy, on the threads of its BLAS."""
    random = np.random.default_rng(1)
    points = ks.Points(random.uniform(0.0, 1000.0, (n, 2)), random.normal(size=n))
    model = ks.Nugget(0.2) + ks.Exponential(1.0, range=120.0)

    def textbook():
        system = np.ones((n + 1, n + 1))
        lags = points.coordinates[:, None] - points.coordinates[None]
        system[:n, :n] = model.covariance(np.hypot(*lags.T).ravel()).reshape(n, n)
        system[n, n] = 0.0
        inverse = np.linalg.inv(system)
        return points.values - (inverse[:n, :n] @ points.values) / np.diag(inverse)[:n]

    assert np.allclose(ks.cross_validate(points, model).estimate, textbook(), rtol=0.0, atol=1e-9)

    def seconds(call):
        before = time.perf_counter()
        call()
        return time.perf_counter() - before

    one, two, theirs = np.min([[seconds(lambda: ks.cross_validate(points, model, threads=1)),
                                seconds(lambda: ks.cross_validate(points, model, threads=2)), seconds(textbook)]
                               for _ in range(REPETITIONS)], axis=0)
    print_row([f"leave one out, all of {n:,} data (elapsed)", f"{1e3 * one:.1f}", f"{1e9 * one / n:.0f}", f"{1e3 * theirs:.1f}",
               f"{theirs / one:.1f}", "", f"{one / two:.2f}"])


# Arguments: a folder with data.csv, the numbers of nodes, and the neighbours. Writes estimates and variances, x fastest,
# and prints the processor time of kriging alone.
KRIGING_IN_R = """
suppressMessages({library(sp); library(gstat)})
arguments <- commandArgs(trailingOnly = TRUE)
data <- read.csv(file.path(arguments[1], "data.csv"))
size <- as.integer(arguments[2:4])
nodes <- expand.grid(x = 1:size[1] - 0.5, y = 1:size[2] - 0.5, z = 1:size[3] - 0.5)
model <- vgm(1, "Sph", 0.3 * size[1])
coordinates(data) <- ~x+y+z
coordinates(nodes) <- ~x+y+z
time <- system.time(kriged <- krige(v ~ 1, data, nodes, model, nmax = as.numeric(arguments[5]), debug.level = 0))
results <- file(file.path(arguments[1], "results"), "wb")
writeBin(c(kriged$var1.pred, kriged$var1.var), results)
close(results)
cat(time[["user.self"]] + time[["sys.self"]])
"""


def kriging(ndata, neighbors, shape, target):
    """Ordinary kriging of data in random places, estimate and variance, by the nearest or (None) by all."""
    random = np.random.default_rng(1)
    places, values = shape * random.random((ndata, 3)), random.normal(size=ndata)
    if shape[2] == 1:
        places[:, 2] = 0.5
    with tempfile.TemporaryDirectory() as folder:
        table = np.column_stack([places, values])
        np.savetxt(Path(folder, "data.csv"), table, "%.17g", ",", header="x,y,z,v", comments="")
        script = Path(folder, "krige.R")
        script.write_text(KRIGING_IN_R, encoding="ascii")
        arguments = [folder, *map(str, shape), str(neighbors or "Inf")]
        answer = subprocess.run(["Rscript", script, *arguments], check=True, capture_output=True, text=True)
        seconds, (estimate, variance) = float(answer.stdout), np.fromfile(Path(folder, "results")).reshape(2, -1)
    dimensions = 3 if shape[2] > 1 else 2
    points = ks.Points(places[:, :dimensions], values)
    grid, model = ks.Grid(*shape), ks.Spherical(1.0, range=0.3 * shape[0])

    def ours(threads=1):
        return ks.krige(points, model, grid, neighbors=neighbors, threads=threads)

    result = ours()
    # Of two data at one distance, to rounding, either may be among the nearest.
    for own, other in ((result.estimate, estimate), (result.variance, variance)):
        assert np.mean(~np.isclose(own.to_numpy().ravel(), other, rtol=0.0, atol=1e-9)) < 1e-5
    # The work is on a thread of its own: its processor time is that of the process.
    times = []
    for threads in (1, 2):
        taken = []
        for _ in range(REPETITIONS):
            before = time.process_time(), time.perf_counter()
            ours(threads)
            taken.append((1e3 * (time.process_time() - before[0]), 1e3 * (time.perf_counter() - before[1])))
        times.append(np.min(taken, axis=0))
    nnode = np.prod(shape)
    title = f"kriging, {neighbors or 'all'} of {ndata} data, {'x'.join(map(str, shape))}"
    print_row([title, f"{times[0][0]:.1f}", f"{1e6 * times[0][0] / nnode:.2f}", f"{1e3 * seconds:.1f}",
               f"{1e3 * seconds / times[0][0]:.1f}", f"{target:g}", f"{times[0][1] / times[1][1]:.2f}"])


def main():
    print_row(HEADER)
    if shutil.which("Rscript") and subprocess.run(["Rscript", "-e", "library(gstat)"], capture_output=True).returncode == 0:
        kriging(2000, 20, (1000, 1000, 1), 75.0)
        kriging(200, 20, (200, 200, 25), 30.0)
        kriging(200, None, (300, 300, 1), 20.0)
    for n in (128, 256):
        for sigma in (4.0, 0.0):
            label(n, sigma)
    for sigma in (4.0, 0.0):
        arrays(256, sigma)
        statistics(256, sigma)
        distance_of_array(256, sigma)
        distance(256, sigma)
        morphology(256, sigma)
    label_picture(4096)
    nearest_label(256)
    halves(256)
    mean_of_array(128)
    box_mean(128)
    euler(2000)
    variogram(500, 50)
    lags_by_transforms(500, 50)
    for lag_max in (15, 50):
        transitions(500, lag_max)
    clusters(200_000, 8, 10)
    point_variogram(100_000)
    leave_one_out(2000)


if __name__ == "__main__":
    main()
