// RGB <-> HSV for one colour, in the exact precision each step is defined in.
#include <PlimBitmapLib/PlimPixelBuffer.h>

#include <cmath>

extern "C" {

void PlimConvertRGBToHSV(float *t) {
    float r = t[0], g = t[1], b = t[2];
    float max = std::fmaxf(std::fmaxf(r, g), b);
    float min = std::fminf(std::fminf(r, g), b);
    float delta = max - min;
    float hue = 0.0f;
    if (delta != 0.0f) {
        // The quotient is float; the offset and the scaling to degrees are double.
        if (r == max)
            hue = static_cast<float>((static_cast<double>((g - b) / delta) + 0.0) * 60.0);
        else if (g == max)
            hue = static_cast<float>((static_cast<double>((b - r) / delta) + 2.0) * 60.0);
        else if (b == max)
            hue = static_cast<float>((static_cast<double>((r - g) / delta) + 4.0) * 60.0);
    }
    t[0] = hue;
    t[1] = delta;  // saturation is max - min, not divided by max
    t[2] = max;
}

void PlimConvertHSVToRGB(float *t) {
    float h = t[0], s = t[1], v = t[2];
    if (s == 0.0f) {
        t[0] = t[1] = t[2] = v;
        return;
    }
    double x = static_cast<double>(h) / 60.0;
    float i = static_cast<float>(std::floor(x));
    float f = static_cast<float>(x - static_cast<double>(i));
    float p = (1.0f - s) * v;
    float q = (1.0f - s * f) * v;
    float u = (1.0f - (1.0f - f) * s) * v;
    float r = 0.0f, g = 0.0f, b = 0.0f;
    if (i == 0.0f) r = v, g = u, b = p;
    else if (i == 1.0f) r = q, g = v, b = p;
    else if (i == 2.0f) r = p, g = v, b = u;
    else if (i == 3.0f) r = p, g = q, b = v;
    else if (i == 4.0f) r = u, g = p, b = v;
    else if (i == 5.0f) r = v, g = p, b = q;
    t[0] = r;
    t[1] = g;
    t[2] = b;
}

}  // extern "C"
