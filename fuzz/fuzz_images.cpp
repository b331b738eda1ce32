// Reads fuzzed bytes as an image file and finds the dots of fuzzed images. The first byte
// chooses: even, the rest is an image file (PGM, PNG, TIFF, JPEG: the seeds hold one of
// each) for mfDecodeImage, whose only allowed failure is mvImageFileDefs::BadFile, and a
// decoded image of up to a million pels then goes to the detector; odd, the rest makes a
// small 8-bit or 16-bit image and detector parameters. Of the dots found:
// - centres, contrast and axes are finite, contrast and area pass the filters;
// - roundness lies in [0, 1] and the mask's box lies inside the image;
// - the dots come sorted by the row of their centre, then x.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "fuzz_support.h"
#include "ptmatch/dots.h"
#include "ptmatch/imageio.h"

namespace {

template <typename T>
void checkDots(const mvPelBuffer<T>& image, const mvDotDetectParams& params) {
  const std::vector<mvDot> dots = mfFindDots(image, params);
  for (std::size_t i = 0; i < dots.size(); ++i) {
    const mvDot& d = dots[i];
    FUZZ_CHECK(std::isfinite(d.x()) && std::isfinite(d.y()));
    FUZZ_CHECK(std::isfinite(d.contrast()) && d.contrast() >= params.minContrast());
    FUZZ_CHECK(d.area() >= params.minArea() && d.area() <= params.maxArea());
    FUZZ_CHECK(d.roundness() >= 0.0 && d.roundness() <= 1.0 + 1e-9);
    FUZZ_CHECK(d.roundness() >= params.minRoundness());
    FUZZ_CHECK(std::isfinite(d.majorAxis()) && d.minorAxis() <= d.majorAxis() + 1e-9);
    FUZZ_CHECK(d.box().x() >= 0 && d.box().y() >= 0);
    FUZZ_CHECK(d.box().x() + d.box().width() <= image.width());
    FUZZ_CHECK(d.box().y() + d.box().height() <= image.height());
    if (i > 0) {
      const double r0 = std::floor(dots[i - 1].y() + 0.5), r1 = std::floor(d.y() + 0.5);
      FUZZ_CHECK(r0 < r1 || (r0 == r1 && dots[i - 1].x() <= d.x()));
    }
  }
}

mvDotDetectParams fuzzedParams(FuzzedDataProvider& in) {
  mvDotDetectParams p;
  p.polarity(static_cast<mvDotDefs::Polarity>(in.ConsumeIntegralInRange<int>(0, 2)));
  p.threshold(static_cast<mvDotDefs::Threshold>(in.ConsumeIntegralInRange<int>(0, 2)));
  if (p.threshold() == mvDotDefs::eFixed) {
    p.fixedThreshold(in.ConsumeIntegralInRange<int>(0, 65535));
  }
  p.localWindow(in.ConsumeBool() ? 0 : in.ConsumeIntegralInRange<long>(3, 100));
  p.maxArea(in.ConsumeIntegralInRange<int>(4, 5000));
  p.minArea(in.ConsumeIntegralInRange<int>(1, 4));
  p.minRoundness(in.ConsumeIntegralInRange<int>(0, 10) / 10.0);
  p.minContrast(in.ConsumeIntegralInRange<int>(0, 50));
  p.dropBorderDots(in.ConsumeBool());
  return p;
}

template <typename T>
mvPelBuffer<T> fuzzedImage(FuzzedDataProvider& in) {
  const long width = in.ConsumeIntegralInRange<long>(1, 64);
  const long height = in.ConsumeIntegralInRange<long>(1, 64);
  mvPelBuffer<T> image(width, height);
  // A few levels, so that flat regions and dots occur; the rest of the bytes fill pels.
  for (long y = 0; y < height; ++y) {
    for (long x = 0; x < width; ++x) {
      image.pointToRow(y)[x] =
          static_cast<T>(in.ConsumeIntegral<unsigned char>() * (sizeof(T) == 2 ? 257 : 1));
    }
  }
  return image;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  if (data[0] % 2 == 0) {
    const std::string bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    mvGreyImage image;
    try {
      image = mfDecodeImage(bytes, "fuzz");
    } catch (const mvImageFileDefs::BadFile&) {
      return 0;
    }
    FUZZ_CHECK(image.bits() == 8 || image.bits() == 16);
    FUZZ_CHECK(image.width() >= 1 && image.height() >= 1);
    if (image.width() * image.height() > 1000000) return 0;
    if (image.bits() == 8) {
      checkDots(image.pels8(), mvDotDetectParams());
    } else {
      checkDots(image.pels16(), mvDotDetectParams());
    }
    return 0;
  }
  FuzzedDataProvider in(data + 1, size - 1);
  const mvDotDetectParams params = fuzzedParams(in);
  if (in.ConsumeBool()) {
    checkDots(fuzzedImage<unsigned short>(in), params);
  } else {
    checkDots(fuzzedImage<unsigned char>(in), params);
  }
  return 0;
}
