// `ptmatch dots`: finds the dots of an image and prints them, as a table or JSON, with a
// picture of the image and the dots found.
#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

#include "commands.h"
#include "dot_input.h"
#include "image_io.h"
#include "json.h"
#include "mvbase/timer.h"
#include "svg.h"

namespace ptmatch::cli {

namespace {

/// Pictures are at most this many pixels on their longer side.
constexpr double kLargestPicture = 1200.0;

std::string base64(const std::string& bytes) {
  static const char* const digits =
      "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  std::size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const unsigned v = (static_cast<unsigned char>(bytes[i]) << 16) |
                       (static_cast<unsigned char>(bytes[i + 1]) << 8) |
                       static_cast<unsigned char>(bytes[i + 2]);
    for (int k = 18; k >= 0; k -= 6) out.push_back(digits[(v >> k) & 63]);
  }
  if (i < bytes.size()) {
    unsigned v = static_cast<unsigned char>(bytes[i]) << 16;
    if (i + 1 < bytes.size()) v |= static_cast<unsigned char>(bytes[i + 1]) << 8;
    out.push_back(digits[(v >> 18) & 63]);
    out.push_back(digits[(v >> 12) & 63]);
    out.push_back(i + 1 < bytes.size() ? digits[(v >> 6) & 63] : '=');
    out.push_back('=');
  }
  return out;
}

/// The image in 8 bits for the picture: a 16-bit one stretched from its darkest to its
/// brightest pel.
mvPelBuffer<unsigned char> pictureGrey(const mvGreyImage& image) {
  if (image.bits() == 8) return image.pels8();
  const mvPelBuffer<unsigned short>& in = image.pels16();
  unsigned lo = 65535, hi = 0;
  for (long y = 0; y < in.height(); ++y) {
    for (long x = 0; x < in.width(); ++x) {
      lo = std::min<unsigned>(lo, in.pointToRow(y)[x]);
      hi = std::max<unsigned>(hi, in.pointToRow(y)[x]);
    }
  }
  mvPelBuffer<unsigned char> out(in.width(), in.height());
  const double scale = hi > lo ? 255.0 / (hi - lo) : 0.0;
  for (long y = 0; y < in.height(); ++y) {
    for (long x = 0; x < in.width(); ++x) {
      out.pointToRow(y)[x] = static_cast<unsigned char>((in.pointToRow(y)[x] - lo) * scale + 0.5);
    }
  }
  return out;
}

/// The image (embedded as PNG when this build writes PNG) with every dot's outline (the
/// ellipse of its second moments) and centre.
void writePicture(const std::string& path, const mvGreyImage& image,
                  const std::vector<mvDot>& dots) {
  const double scale =
      std::min(4.0, kLargestPicture / static_cast<double>(std::max(image.width(), image.height())));
  const double w = image.width() * scale, h = image.height() * scale;
  SvgDocument svg(w, h);
  if (pngSupported()) {
    svg.image(0, 0, w, h, "data:image/png;base64," + base64(mfEncodePng(pictureGrey(image))));
  } else {
    svg.rect(0, 0, w, h, "fill=\"#808080\"");
  }
  svg.beginGroup("fill=\"none\" stroke-width=\"1.5\"");
  for (const mvDot& dot : dots) {
    // Pel (x, y) covers [x - 0.5, x + 0.5] in the picture's frame.
    const double cx = (dot.x() + 0.5) * scale, cy = (dot.y() + 0.5) * scale;
    const std::string colour = dot.touchesBorder() ? "#ff9900" : "#00c8ff";
    svg.ellipse(cx, cy, 0.5 * dot.majorAxis() * scale, 0.5 * dot.minorAxis() * scale,
                dot.angle() * 180.0 / M_PI, "stroke=\"" + colour + "\"");
    svg.plus(cx, cy, 3.0, "stroke=\"#ff0040\"");
  }
  svg.endGroup();
  svg.save(path);
}

JsonValue dotsJson(const mvGreyImage& image, const std::vector<mvDot>& dots, double seconds) {
  JsonValue list = JsonValue::array();
  for (const mvDot& dot : dots) {
    JsonValue d = JsonValue::object();
    d.set("x", dot.x()).set("y", dot.y()).set("area", dot.area());
    d.set("contrast", dot.contrast()).set("roundness", dot.roundness());
    list.push(d);
  }
  JsonValue o = JsonValue::object();
  o.set("width", image.width()).set("height", image.height()).set("dots", list);
  o.set("time", seconds);
  return o;
}

void writeTable(std::ostream& out, const mvGreyImage& image, const std::vector<mvDot>& dots,
                double seconds) {
  out << dots.size() << " dots in a " << image.width() << " x " << image.height() << " image of "
      << image.bits() << " bits (" << std::fixed << std::setprecision(2) << seconds * 1000.0
      << " ms)\n";
  out << "       x          y      area  contrast  roundness\n";
  for (const mvDot& dot : dots) {
    out << std::setw(10) << std::setprecision(3) << dot.x() << " " << std::setw(10) << dot.y()
        << " " << std::setw(9) << std::setprecision(0) << dot.area() << " " << std::setw(9)
        << std::setprecision(1) << dot.contrast() << " " << std::setw(10) << std::setprecision(3)
        << dot.roundness() << (dot.touchesBorder() ? "  (border)" : "") << "\n";
  }
}

}  // namespace

int runDots(const std::vector<std::string>& args, std::ostream& out) {
  std::vector<OptionSpec> specs = dotOptionSpecs();
  specs.insert(specs.end(), {{"--image", true}, {"--json", false}, {"--svg", true}});
  const ParsedOptions options = parseOptions(args, specs, "dots");
  const std::string path = options.required("--image");
  const mvDotDetectParams params = dotParamsFrom(options);
  const mvGreyImage image = readImageFile(path);
  const mvTimer timer;
  const std::vector<mvDot> dots = findDotsIn(image, params);
  const double seconds = timer.sec();
  if (options.has("--json")) {
    out << dotsJson(image, dots, seconds).dump() << "\n";
  } else {
    writeTable(out, image, dots, seconds);
  }
  if (options.has("--svg")) writePicture(options.value("--svg"), image, dots);
  return 0;
}

}  // namespace ptmatch::cli
