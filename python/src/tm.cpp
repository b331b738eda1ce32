// Bindings of the point-match transforms: PtMatchTm2 (mv2PtMatchTm), PerspectiveTm2
// (mv2PTm) and PtMatchTm3 (mv3PtMatchTm). Points go in and come out as numpy arrays: one
// point of shape (2,) or (3,), or many of shape (N, 2) or (N, 3). Angles are in radians.
#include <string>

#include "common.h"
#include "ptmatch/tm.h"

namespace ptmatch_py {
namespace {

// True when the array-like is a single point (one-dimensional).
bool isSinglePoint(const py::handle& obj) {
  return py::module_::import("numpy").attr("ndim")(obj).cast<int>() == 1;
}

template <typename Map>
py::array_t<double> mapPoints2(const py::handle& obj, Map map) {
  if (isSinglePoint(obj)) return fromVector2(map(toVector2(obj, "point")));
  Points2 points = toPoints2(obj, "points");
  for (mvVector<2>& p : points) p = map(p);
  return fromPoints2(points);
}

template <typename Map>
py::array_t<double> mapPoints3(const py::handle& obj, Map map) {
  if (isSinglePoint(obj)) return fromVector3(map(toVector3(obj, "point")));
  Points3 points = toPoints3(obj, "points");
  for (mvVector<3>& p : points) p = map(p);
  return fromPoints3(points);
}

// Adds one pair (two single points) or two equally long lists of points.
template <typename Tm>
void update2(Tm& tm, const py::handle& a, const py::handle& b) {
  if (isSinglePoint(a) && isSinglePoint(b)) {
    tm.update(toVector2(a, "a"), toVector2(b, "b"));
  } else {
    tm.update(toPoints2(a, "a"), toPoints2(b, "b"));
  }
}

// A Python number, as opposed to an array-like.
bool isNumber(const py::handle& obj) {
  return py::isinstance<py::float_>(obj) || py::isinstance<py::int_>(obj);
}

constexpr const char* kUpdateDoc =
    "Adds the pair a -> b (two single points) or the pairs (a[i], b[i]) of two point lists "
    "(update); lists of different lengths raise BadArgs, adding nothing.";

void bindPtMatchTm2(py::module_& m) {
  py::class_<mv2PtMatchTm> cls(m, "PtMatchTm2", R"doc(
A 2-D affine transform from plane a to plane b, fitted by least squares to point pairs and
kept in both directions (mv2PtMatchTm): b = A a + t, with a2b_xform = [[a00, a01, tx],
[a10, a11, ty]] and b2a_xform its inverse. The pairs added since the last identity() or
reset() are kept for fit(); the archive (and so a pickle) holds only the two transforms,
while copy.copy keeps the pairs too.

Example:

>>> tm = ptmatch.PtMatchTm2([(0, 0), (10, 0), (0, 10)], [(5, 5), (15, 5), (5, 15)], dof=4)
>>> (tm.a2b((2, 3)).round(6) + 0.0).tolist()
[7.0, 8.0])doc");
  cls.def(py::init<>(), "The identity, with no pairs.");
  cls.def(py::init([](const py::object& a2b) { return mv2PtMatchTm(toXform(a2b, "a2b")); }),
          py::arg("a2b"),
          "The given 2x3 transform as a2b, with no pairs; a singular one raises "
          "ptmatch.MathError.");
  cls.def(py::init([](const py::object& a, const py::object& b, long dof) {
            return mv2PtMatchTm(toPoints2(a, "a"), toPoints2(b, "b"), dof);
          }),
          py::arg("a"), py::arg("b"), py::arg("dof") = 6,
          "Fitted to the pairs (a[i], b[i]) with the given degrees of freedom (see fit).");
  cls.def(
      "update",
      [](mv2PtMatchTm& tm, const py::object& a, const py::object& b) { update2(tm, a, b); },
      py::arg("a"), py::arg("b"), kUpdateDoc);
  cls.def(
      "fit", [](mv2PtMatchTm& tm, long dof) { tm.fit(dof); }, py::arg("dof") = 6,
      "Fits a2b to the pairs (fit): dof 3 rigid, 4 similarity, 5 two axis scales, 6 affine; "
      "below 3 the first of 6, 5, 4, 3 that succeeds. A failed fit (ptmatch.FitError) leaves "
      "the transform unchanged.");
  cls.def(
      "fit",
      [](mv2PtMatchTm& tm, const py::object& a, const py::object& b, long dof) {
        tm.fit(toPoints2(a, "a"), toPoints2(b, "b"), dof);
      },
      py::arg("a"), py::arg("b"), py::arg("dof") = 6,
      "identity(), update(a, b), fit(dof) (fit with points).");
  cls.def("reset", &mv2PtMatchTm::reset, "Forgets the pairs; the transform is kept (reset).");
  cls.def("identity", &mv2PtMatchTm::identity,
          "Both transforms become the identity and the pairs are forgotten (identity).");
  cls.def(
      "rotate", [](mv2PtMatchTm& tm, double angle) { tm.rotate(mvRadian(angle)); },
      py::arg("angle"),
      "Rotates plane a by angle (radians) before the transform; forgets the "
      "pairs (rotate).");
  cls.def(
      "translate", [](mv2PtMatchTm& tm, const py::object& v) { tm.translate(toVector2(v, "v")); },
      py::arg("v"), "Translates plane a: the new a2b(p) is the old a2b(p + v) (translate).");
  cls.def(
      "scale",
      [](mv2PtMatchTm& tm, const py::object& s) {
        if (isNumber(s)) {
          tm.scale(s.cast<double>());
        } else {
          tm.scale(toVector2(s, "s"));
        }
      },
      py::arg("s"),
      "Scales plane a by s, or by (sx, sy), before the transform; forgets the "
      "pairs (scale).");
  cls.def("concat", &mv2PtMatchTm::concat, py::arg("other"),
          "Applies other first, then this transform; forgets the pairs (concat).");
  cls.def("append", &mv2PtMatchTm::append, py::arg("other"),
          "Applies this transform first, then other; forgets the pairs (append).");
  cls.def(
      "a2b",
      [](const mv2PtMatchTm& tm, const py::object& p) {
        return mapPoints2(p, [&](const mvVector<2>& v) { return tm.a2b(v); });
      },
      py::arg("points"), "Maps a point (2,) or points (N, 2) from a to b (a2b).");
  cls.def(
      "b2a",
      [](const mv2PtMatchTm& tm, const py::object& p) {
        return mapPoints2(p, [&](const mvVector<2>& v) { return tm.b2a(v); });
      },
      py::arg("points"), "Maps a point (2,) or points (N, 2) from b to a (b2a).");
  cls.def(
      "a2b_angle",
      [](const mv2PtMatchTm& tm, double angle) { return tm.a2b(mvRadian(angle)).toDouble(); },
      py::arg("angle"), "Maps a direction (radians) from a to b (a2b with an angle).");
  cls.def(
      "b2a_angle",
      [](const mv2PtMatchTm& tm, double angle) { return tm.b2a(mvRadian(angle)).toDouble(); },
      py::arg("angle"), "Maps a direction (radians) from b to a (b2a with an angle).");
  cls.def_property_readonly(
      "a2b_xform", [](const mv2PtMatchTm& tm) { return fromXform(tm.a2bXform()); },
      "The transform from a to b, 2x3 (a2bXform).");
  cls.def_property_readonly(
      "b2a_xform", [](const mv2PtMatchTm& tm) { return fromXform(tm.b2aXform()); },
      "The transform from b to a, 2x3 (b2aXform).");
  cls.def(
      "__eq__", [](const mv2PtMatchTm& tm, const mv2PtMatchTm& other) { return tm == other; },
      py::is_operator());
  cls.def(
      "__eq__",
      [](const mv2PtMatchTm& tm, const py::object& other) { return tm == toXform(other, "other"); },
      py::is_operator(), "True when a2b equals the other transform (pairs are not compared).");
  cls.def("__repr__", [](const mv2PtMatchTm& tm) {
    return py::str("PtMatchTm2(a2b={})").format(fromXform(tm.a2bXform()).attr("tolist")());
  });
  addCopying<mv2PtMatchTm>(cls);
  addArchivePickling<mv2PtMatchTm>(cls);
}

void bindPerspectiveTm2(py::module_& m) {
  py::class_<mv2PTm> cls(m, "PerspectiveTm2", R"doc(
A 2-D perspective transform from plane a to plane b with eight parameters h0 ... h7
(mv2PTm): w = h6 x + h7 y + 1, b = ((h0 x + h1 y + h2) / w, (h3 x + h4 y + h5) / w). The
inverse and every edit are found by mapping sample points and refitting.

Example:

>>> a = [(0, 0), (10, 0), (0, 10), (10, 10)]
>>> tm = ptmatch.PerspectiveTm2(a, [(x + 5, y + 5) for x, y in a])
>>> (tm.a2b((2, 3)).round(6) + 0.0).tolist()
[7.0, 8.0])doc");
  cls.def(py::init<>(), "The identity, with empty sums.");
  cls.def(py::init([](const py::object& a, const py::object& b) {
            return mv2PTm(toPoints2(a, "a"), toPoints2(b, "b"));
          }),
          py::arg("a"), py::arg("b"), "Fitted to the pairs (a[i], b[i]).");
  cls.def(py::init<const mv2PtMatchTm&>(), py::arg("tm"),
          "The affine transform of a PtMatchTm2, with empty sums.");
  cls.def(
      "update", [](mv2PTm& tm, const py::object& a, const py::object& b) { update2(tm, a, b); },
      py::arg("a"), py::arg("b"), kUpdateDoc);
  cls.def(
      "fit", [](mv2PTm& tm) { tm.fit(); },
      "Solves a2b from the accumulated sums (kept), then refits b2a (fit).");
  cls.def(
      "fit",
      [](mv2PTm& tm, const py::object& a, const py::object& b) {
        tm.fit(toPoints2(a, "a"), toPoints2(b, "b"));
      },
      py::arg("a"), py::arg("b"), "identity(), update(a, b), fit() (fit with points).");
  cls.def("identity", &mv2PTm::identity,
          "Both directions become the identity and the sums are emptied (identity).");
  cls.def(
      "rotate", [](mv2PTm& tm, double angle) { tm.rotate(mvRadian(angle)); }, py::arg("angle"),
      "Rotates plane a by angle (radians) before the transform (rotate).");
  cls.def(
      "translate", [](mv2PTm& tm, const py::object& v) { tm.translate(toVector2(v, "v")); },
      py::arg("v"), "Translates plane a before the transform (translate).");
  cls.def(
      "scale",
      [](mv2PTm& tm, const py::object& s) {
        tm.scale(isNumber(s) ? mvVector<2>(s.cast<double>(), s.cast<double>()) : toVector2(s, "s"));
      },
      py::arg("s"), "Scales plane a by s, or by (sx, sy), before the transform (scale).");
  cls.def(
      "a2b",
      [](const mv2PTm& tm, const py::object& p) {
        return mapPoints2(p, [&](const mvVector<2>& v) { return tm.a2b(v); });
      },
      py::arg("points"), "Maps a point (2,) or points (N, 2) from a to b (a2b).");
  cls.def(
      "b2a",
      [](const mv2PTm& tm, const py::object& p) {
        return mapPoints2(p, [&](const mvVector<2>& v) { return tm.b2a(v); });
      },
      py::arg("points"), "Maps a point (2,) or points (N, 2) from b to a (b2a).");
  cls.def_property_readonly(
      "a2b_xform", [](const mv2PTm& tm) { return fromXform(tm.a2bXform()); },
      "The best affine approximation of a2b, 2x3 (a2bXform).");
  cls.def_property_readonly("a2b_tm", &mv2PTm::a2bTm,
                            "The same approximation as a PtMatchTm2 with its pairs (a2bTm).");
  cls.def("__repr__", [](const mv2PTm& tm) {
    return py::str("PerspectiveTm2(affine part={})")
        .format(fromXform(tm.a2bXform()).attr("tolist")());
  });
  addCopying<mv2PTm>(cls);
  addArchivePickling<mv2PTm>(cls);
}

// The 3x4 matrix [A | t] of a 3-D affine map, read off the images of the origin and the
// unit vectors.
template <typename Map>
py::array_t<double> matrixOf(Map map) {
  const mvVector<3> t = map(mvVector<3>(0, 0, 0));
  const mvVector<3> columns[3] = {map(mvVector<3>(1, 0, 0)) - t, map(mvVector<3>(0, 1, 0)) - t,
                                  map(mvVector<3>(0, 0, 1)) - t};
  py::array_t<double> out(std::vector<py::ssize_t>{3, 4});
  double* d = out.mutable_data();
  for (int c = 0; c < 3; ++c) {
    d[0 * 4 + c] = columns[c].x();
    d[1 * 4 + c] = columns[c].y();
    d[2 * 4 + c] = columns[c].z();
  }
  d[3] = t.x();
  d[7] = t.y();
  d[11] = t.z();
  return out;
}

void bindPtMatchTm3(py::module_& m) {
  py::class_<mv3PtMatchTm> cls(m, "PtMatchTm3", R"doc(
A 3-D affine transform from space a to space b (mv3PtMatchTm): b = A a + t, a 3x4 matrix
[A | t] fitted by least squares. Rotations and scaling act on A from the b side and keep
t; translate acts in space a.

Example:

>>> a = [(0, 0, 0), (1, 0, 0), (0, 1, 0), (0, 0, 1)]
>>> tm = ptmatch.PtMatchTm3()
>>> tm.fit(a, [(x + 1, y + 2, z + 3) for x, y, z in a])
>>> (tm.a2b((1, 1, 1)).round(6) + 0.0).tolist()
[2.0, 3.0, 4.0])doc");
  cls.def(py::init<>(), "The identity, with empty sums.");
  cls.def(py::init([](const py::object& a, const py::object& b) {
            return mv3PtMatchTm(toPoints3(a, "a"), toPoints3(b, "b"));
          }),
          py::arg("a"), py::arg("b"),
          "As the C++ constructor: its fit runs before the fitters are sized, so the result "
          "is the identity with empty sums. For a fitted transform use PtMatchTm3() and "
          "fit(a, b).");
  cls.def(
      "update",
      [](mv3PtMatchTm& tm, const py::object& a, const py::object& b) {
        if (isSinglePoint(a) && isSinglePoint(b)) {
          tm.update(toVector3(a, "a"), toVector3(b, "b"));
        } else {
          tm.update(toPoints3(a, "a"), toPoints3(b, "b"));
        }
      },
      py::arg("a"), py::arg("b"), kUpdateDoc);
  cls.def(
      "fit", [](mv3PtMatchTm& tm) { tm.fit(); },
      "Solves the three rows from the sums (kept), then inverts (fit); too few pairs raise "
      "ptmatch.SingularMatrix.");
  cls.def(
      "fit",
      [](mv3PtMatchTm& tm, const py::object& a, const py::object& b) {
        tm.fit(toPoints3(a, "a"), toPoints3(b, "b"));
      },
      py::arg("a"), py::arg("b"), "identity(), update(a, b), fit() (fit with points).");
  cls.def("identity", &mv3PtMatchTm::identity,
          "Both directions become the identity and the sums are emptied (identity).");
  cls.def(
      "rotate_on_x", [](mv3PtMatchTm& tm, double angle) { tm.rotateOnX(mvRadian(angle)); },
      py::arg("angle"), "Rotates the linear part about x by angle (radians) (rotateOnX).");
  cls.def(
      "rotate_on_y", [](mv3PtMatchTm& tm, double angle) { tm.rotateOnY(mvRadian(angle)); },
      py::arg("angle"), "Rotates the linear part about y by angle (radians) (rotateOnY).");
  cls.def(
      "rotate_on_z", [](mv3PtMatchTm& tm, double angle) { tm.rotateOnZ(mvRadian(angle)); },
      py::arg("angle"), "Rotates the linear part about z by angle (radians) (rotateOnZ).");
  cls.def(
      "translate", [](mv3PtMatchTm& tm, const py::object& v) { tm.translate(toVector3(v, "v")); },
      py::arg("v"), "Translates space a: the new a2b(p) is the old a2b(p + v) (translate).");
  cls.def(
      "scale",
      [](mv3PtMatchTm& tm, const py::object& s) {
        if (isNumber(s)) {
          tm.scale(s.cast<double>());
        } else {
          tm.scale(toVector3(s, "s"));
        }
      },
      py::arg("s"), "Scales the linear part by s or (sx, sy, sz), keeping t (scale).");
  cls.def(
      "a2b",
      [](const mv3PtMatchTm& tm, const py::object& p) {
        return mapPoints3(p, [&](const mvVector<3>& v) { return tm.a2b(v); });
      },
      py::arg("points"), "Maps a point (3,) or points (N, 3) from a to b (a2b).");
  cls.def(
      "b2a",
      [](const mv3PtMatchTm& tm, const py::object& p) {
        return mapPoints3(p, [&](const mvVector<3>& v) { return tm.b2a(v); });
      },
      py::arg("points"), "Maps a point (3,) or points (N, 3) from b to a (b2a).");
  cls.def_property_readonly(
      "a2b_matrix",
      [](const mv3PtMatchTm& tm) {
        return matrixOf([&](const mvVector<3>& v) { return tm.a2b(v); });
      },
      "The 3x4 matrix [A | t] from a to b.");
  cls.def_property_readonly(
      "b2a_matrix",
      [](const mv3PtMatchTm& tm) {
        return matrixOf([&](const mvVector<3>& v) { return tm.b2a(v); });
      },
      "The 3x4 matrix from b to a.");
  cls.def("__repr__", [](const mv3PtMatchTm& tm) {
    return py::str("PtMatchTm3(a2b={})").format(matrixOf([&](const mvVector<3>& v) {
                                                  return tm.a2b(v);
                                                }).attr("tolist")());
  });
  addCopying<mv3PtMatchTm>(cls);
  addArchivePickling<mv3PtMatchTm>(cls);
}

}  // namespace

void bindTransforms(py::module_& m) {
  bindPtMatchTm2(m);
  bindPerspectiveTm2(m);
  bindPtMatchTm3(m);
}

}  // namespace ptmatch_py
