// Bindings of the dot detector and the image reader: find_dots (mfFindDots) on a 2-D uint8
// or uint16 array of any strides, and read_image (mfReadImage).
#include <cstdint>
#include <cstring>
#include <string>

#include "common.h"
#include "mvbase/timer.h"
#include "ptmatch/dots.h"
#include "ptmatch/imageio.h"

namespace ptmatch_py {
namespace {

mvDotDefs::Polarity toPolarity(const std::string& name) {
  if (name == "dark") return mvDotDefs::eDark;
  if (name == "bright") return mvDotDefs::eBright;
  if (name == "either") return mvDotDefs::eEither;
  throw py::value_error("polarity must be \"dark\", \"bright\" or \"either\", not \"" + name +
                        "\"");
}

// "auto", "local" or a grey value.
void setThreshold(mvDotDetectParams& params, const py::object& threshold) {
  if (py::isinstance<py::str>(threshold)) {
    const std::string name = threshold.cast<std::string>();
    if (name == "auto") return params.threshold(mvDotDefs::eAuto);
    if (name == "local") return params.threshold(mvDotDefs::eLocal);
    throw py::value_error("threshold must be \"auto\", \"local\" or a grey value, not \"" + name +
                          "\"");
  }
  params.fixedThreshold(threshold.cast<double>());
}

// Copies a 2-D array of any strides into a new image.
template <typename T>
mvPelBuffer<T> toImage(const py::array& array) {
  const long height = static_cast<long>(array.shape(0));
  const long width = static_cast<long>(array.shape(1));
  mvPelBuffer<T> image(width, height);
  const char* base = static_cast<const char*>(array.data());
  const bool packedRows = array.strides(1) == static_cast<py::ssize_t>(sizeof(T));
  for (long y = 0; y < height; ++y) {
    T* row = image.pointToRow(y);
    const char* in = base + y * array.strides(0);
    if (packedRows) {
      std::memcpy(row, in, sizeof(T) * static_cast<std::size_t>(width));
      continue;
    }
    for (long x = 0; x < width; ++x) {
      row[x] = *reinterpret_cast<const T*>(in + x * array.strides(1));
    }
  }
  return image;
}

template <typename T>
py::array_t<T> toArray(const mvPelBuffer<T>& image) {
  py::array_t<T> out({image.height(), image.width()});
  auto view = out.template mutable_unchecked<2>();
  for (long y = 0; y < image.height(); ++y) {
    const T* row = image.pointToRow(y);
    for (long x = 0; x < image.width(); ++x) view(y, x) = row[x];
  }
  return out;
}

py::dict dotsDict(const std::vector<mvDot>& dots, double seconds) {
  const py::ssize_t n = static_cast<py::ssize_t>(dots.size());
  py::array_t<double> centres({n, py::ssize_t(2)}), moments({n, py::ssize_t(3)});
  py::array_t<double> area(n), contrast(n), roundness(n), major(n), minor(n), angle(n);
  py::array_t<std::int64_t> box({n, py::ssize_t(4)});
  py::array_t<bool> border(n), bright(n);
  auto c = centres.mutable_unchecked<2>();
  auto m = moments.mutable_unchecked<2>();
  auto b = box.mutable_unchecked<2>();
  for (py::ssize_t i = 0; i < n; ++i) {
    const mvDot& d = dots[static_cast<std::size_t>(i)];
    c(i, 0) = d.x();
    c(i, 1) = d.y();
    m(i, 0) = d.mxx();
    m(i, 1) = d.myy();
    m(i, 2) = d.mxy();
    b(i, 0) = d.box().x();
    b(i, 1) = d.box().y();
    b(i, 2) = d.box().width();
    b(i, 3) = d.box().height();
    area.mutable_at(i) = d.area();
    contrast.mutable_at(i) = d.contrast();
    roundness.mutable_at(i) = d.roundness();
    major.mutable_at(i) = d.majorAxis();
    minor.mutable_at(i) = d.minorAxis();
    angle.mutable_at(i) = d.angle();
    border.mutable_at(i) = d.touchesBorder();
    bright.mutable_at(i) = d.bright();
  }
  py::dict out;
  out["centres"] = centres;
  out["area"] = area;
  out["contrast"] = contrast;
  out["roundness"] = roundness;
  out["major_axis"] = major;
  out["minor_axis"] = minor;
  out["angle"] = angle;
  out["moments"] = moments;
  out["box"] = box;
  out["touches_border"] = border;
  out["bright"] = bright;
  out["time"] = seconds;
  return out;
}

py::dict findDots(const py::array& array, const std::string& polarity, const py::object& threshold,
                  long localWindow, double minArea, double maxArea, double minRoundness,
                  double minContrast, bool dropBorderDots) {
  if (array.ndim() != 2) throw py::value_error("find_dots needs a 2-D array");
  mvDotDetectParams params;
  params.polarity(toPolarity(polarity));
  setThreshold(params, threshold);
  params.localWindow(localWindow);
  params.maxArea(std::max(maxArea, params.minArea()));
  params.minArea(minArea);
  params.maxArea(maxArea);
  params.minRoundness(minRoundness);
  params.minContrast(minContrast);
  params.dropBorderDots(dropBorderDots);
  std::vector<mvDot> dots;
  double seconds = 0.0;
  if (array.dtype().is(py::dtype::of<std::uint8_t>())) {
    const mvPelBuffer<unsigned char> image = toImage<unsigned char>(array);
    withoutGil([&] {
      const mvTimer timer;
      dots = mfFindDots(image, params);
      seconds = timer.sec();
    });
  } else if (array.dtype().is(py::dtype::of<std::uint16_t>())) {
    const mvPelBuffer<unsigned short> image = toImage<unsigned short>(array);
    withoutGil([&] {
      const mvTimer timer;
      dots = mfFindDots(image, params);
      seconds = timer.sec();
    });
  } else {
    throw py::type_error("find_dots needs a uint8 or uint16 array");
  }
  return dotsDict(dots, seconds);
}

py::array readImage(const std::string& path) {
  mvGreyImage image;
  withoutGil([&] { image = mfReadImage(path); });
  if (image.bits() == 16) return toArray(image.pels16());
  return toArray(image.pels8());
}

}  // namespace

void bindDots(py::module_& m) {
  m.def("find_dots", &findDots, py::arg("image"), py::arg("polarity") = "dark",
        py::arg("threshold") = "auto", py::arg("local_window") = 0, py::arg("min_area") = 4.0,
        py::arg("max_area") = 100000.0, py::arg("min_roundness") = 0.0,
        py::arg("min_contrast") = 0.0, py::arg("drop_border_dots") = false,
        R"(Finds the dots of a grey image (mfFindDots).

image: a 2-D uint8 or uint16 array (any strides), rows first. polarity: "dark", "bright"
or "either". threshold: "auto" (Otsu), "local" (follows uneven illumination over windows
of local_window pels, 0 for an eighth of the shorter side) or a grey value. Dots are kept
when their area (pels) lies in [min_area, max_area] and their roundness and contrast reach
the minimums; dots touching the edge are flagged, or dropped with drop_border_dots.

Returns a dict of arrays, one entry per dot, sorted by the row of the centre (rounded),
then x: "centres" (N, 2) float x, y with pel (x, y) centred at (x, y); "area", "contrast",
"roundness", "major_axis", "minor_axis" (full axes of the moments' ellipse), "angle"
(radians), "moments" (N, 3) mxx, myy, mxy; "box" (N, 4) int x, y, width, height;
"touches_border" and "bright" (bool); and "time", the detection's seconds. Runs without
the GIL.)");
  m.def("read_image", &readImage, py::arg("path"),
        R"(Reads a grey image file (mfReadImage): PGM, and PNG, TIFF and JPEG when the library
was built with them. Returns a 2-D uint8 or uint16 array; raises ImageFileError naming the
file and the problem.)");
}

}  // namespace ptmatch_py
