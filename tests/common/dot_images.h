// Rendered dot images with exactly known centres, for the detector's tests and the tools'
// tests: discs and ellipses anti-aliased by supersampling, then Gaussian blur, an
// illumination gradient and Gaussian noise, quantised to 8 or 16 bits.
#pragma once

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "mvbase/image.h"

namespace dot_images {

/// One dot: centre, semi-axes, direction of the first axis (radians), grey step (negative
/// for a dark dot).
struct Dot {
  double x;
  double y;
  double a;
  double b;
  double angle;
  double step;
};

/// The scene: size, background grey, its slope per pel along x and y, blur and noise.
struct Scene {
  long width = 64;
  long height = 64;
  double background = 100.0;
  double slopeX = 0.0;
  double slopeY = 0.0;
  double blur = 0.0;   ///< Gaussian sigma in pels, 0 for none
  double noise = 0.0;  ///< standard deviation in grey levels
  unsigned seed = 1;
  std::vector<Dot> dots;
};

/// Fraction of pel (px, py) covered by the dot, from 16 x 16 samples.
inline double coverage(const Dot& d, long px, long py) {
  constexpr int kSamples = 16;
  const double c = std::cos(d.angle), s = std::sin(d.angle);
  int inside = 0;
  for (int j = 0; j < kSamples; ++j) {
    for (int i = 0; i < kSamples; ++i) {
      const double dx = px - 0.5 + (i + 0.5) / kSamples - d.x;
      const double dy = py - 0.5 + (j + 0.5) / kSamples - d.y;
      const double u = (c * dx + s * dy) / d.a, v = (-s * dx + c * dy) / d.b;
      if (u * u + v * v <= 1.0) ++inside;
    }
  }
  return static_cast<double>(inside) / (kSamples * kSamples);
}

/// Blurs rows then columns with a Gaussian, the edges repeated.
inline void blur(std::vector<double>& g, long w, long h, double sigma) {
  if (sigma <= 0.0) return;
  const long r = static_cast<long>(std::ceil(3.5 * sigma));
  std::vector<double> k(static_cast<std::size_t>(2 * r + 1));
  double sum = 0.0;
  for (long i = -r; i <= r; ++i) sum += k[i + r] = std::exp(-0.5 * i * i / (sigma * sigma));
  for (double& v : k) v /= sum;
  std::vector<double> out(g.size());
  auto pass = [&](bool alongX) {
    for (long y = 0; y < h; ++y) {
      for (long x = 0; x < w; ++x) {
        double acc = 0.0;
        for (long i = -r; i <= r; ++i) {
          const long xx = alongX ? std::clamp(x + i, 0L, w - 1) : x;
          const long yy = alongX ? y : std::clamp(y + i, 0L, h - 1);
          acc += k[i + r] * g[yy * w + xx];
        }
        out[y * w + x] = acc;
      }
    }
    g.swap(out);
  };
  pass(true);
  pass(false);
}

/// The scene's grey values before quantisation, row by row.
inline std::vector<double> renderGrey(const Scene& scene) {
  const long w = scene.width, h = scene.height;
  std::vector<double> dots(static_cast<std::size_t>(w * h), 0.0);
  for (const Dot& d : scene.dots) {
    const long r = static_cast<long>(std::ceil(std::max(d.a, d.b))) + 1;
    for (long y = std::max(0L, static_cast<long>(d.y) - r);
         y <= std::min(h - 1, static_cast<long>(d.y) + r); ++y) {
      for (long x = std::max(0L, static_cast<long>(d.x) - r);
           x <= std::min(w - 1, static_cast<long>(d.x) + r); ++x) {
        dots[y * w + x] += d.step * coverage(d, x, y);
      }
    }
  }
  blur(dots, w, h, scene.blur);
  std::mt19937 random(scene.seed);
  std::normal_distribution<double> noise(0.0, scene.noise > 0.0 ? scene.noise : 1.0);
  for (long y = 0; y < h; ++y) {
    for (long x = 0; x < w; ++x) {
      double& g = dots[y * w + x];
      g += scene.background + scene.slopeX * x + scene.slopeY * y;
      if (scene.noise > 0.0) g += noise(random);
    }
  }
  return dots;
}

/// The scene as an image of pel type T (rounded, clamped to T's range).
template <typename T>
mvPelBuffer<T> render(const Scene& scene) {
  const std::vector<double> grey = renderGrey(scene);
  mvPelBuffer<T> image(scene.width, scene.height);
  const double top = static_cast<double>(static_cast<T>(~T(0)));
  for (long y = 0; y < scene.height; ++y) {
    T* row = image.pointToRow(y);
    for (long x = 0; x < scene.width; ++x) {
      row[x] = static_cast<T>(std::clamp(std::round(grey[y * scene.width + x]), 0.0, top));
    }
  }
  return image;
}

/// A grid of equal round dots: columns x rows, pitch, radius, grey step, first centre,
/// each centre moved by a deterministic sub-pel offset.
inline std::vector<Dot> dotGrid(long columns, long rows, double pitch, double radius, double step,
                                double x0, double y0) {
  std::vector<Dot> dots;
  for (long j = 0; j < rows; ++j) {
    for (long i = 0; i < columns; ++i) {
      const double fx = std::fmod(0.37 * (i * 7 + j * 3 + 1), 1.0) - 0.5;
      const double fy = std::fmod(0.61 * (i * 5 + j * 11 + 2), 1.0) - 0.5;
      dots.push_back(Dot{x0 + i * pitch + fx, y0 + j * pitch + fy, radius, radius, 0.0, step});
    }
  }
  return dots;
}

}  // namespace dot_images
