// SPDX-License-Identifier: Apache-2.0
// Makes the picture that is shrunk: `make-picture picture FILE WIDTH` writes a JPEG of that width and three quarters of
// it in height, with clouds and grain as a camera brings them. The same at every run.
#include <vips/vips.h>

#include <cstdio>
#include <cstdlib>
#include <string>

int main(int count, char** arguments) {
  if (count != 4 || vips_init(arguments[0]) != 0) return 2;
  int const width = std::atoi(arguments[3]);
  int const height = width * 3 / 4;
  VipsImage* bands[3] = {};
  VipsImage* grain = nullptr;
  VipsImage* joined = nullptr;
  VipsImage* grained = nullptr;
  VipsImage* picture = nullptr;
  bool made = vips_gaussnoise(&grain, width, height, "sigma", 6.0, "mean", 110.0, "seed", 7, nullptr) == 0;
  for (int band = 0; band < 3; ++band) {
    VipsImage* clouds = nullptr;
    made = made && vips_perlin(&clouds, width, height, "cell_size", 200 + 100 * band, "seed", band, nullptr) == 0 &&
           vips_linear1(clouds, &bands[band], 90.0, 0.0, nullptr) == 0;
  }
  made = made && vips_bandjoin(bands, &joined, 3, nullptr) == 0 && vips_add(joined, grain, &grained, nullptr) == 0 &&
         vips_cast_uchar(grained, &picture, nullptr) == 0;
  if (made) picture->Type = VIPS_INTERPRETATION_sRGB;
  if (!made || vips_jpegsave(picture, arguments[2], "Q", 88, nullptr) != 0) {
    std::fputs(vips_error_buffer(), stderr);
    return 1;
  }
}
