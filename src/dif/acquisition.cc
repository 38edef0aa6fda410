#include "dif/acquisition.h"

#include <fftw3.h>

#include <algorithm>
#include <cmath>
#include <fstream>

#include <fmt/format.h>

#include "dif/ca_code.h"

namespace vorel::dif {
namespace {

using Complex = std::complex<float>;

// One complex FFT of a fixed size and direction, on buffers of its own.
class Fft {
 public:
  Fft(int n, int sign) : in_(n), out_(n) {
    plan_ = fftwf_plan_dft_1d(n, reinterpret_cast<fftwf_complex*>(in_.data()),
                              reinterpret_cast<fftwf_complex*>(out_.data()), sign, FFTW_ESTIMATE);
  }
  ~Fft() { fftwf_destroy_plan(plan_); }
  Fft(const Fft&) = delete;
  Fft& operator=(const Fft&) = delete;
  std::vector<Complex>& in() { return in_; }
  const std::vector<Complex>& Run() {
    fftwf_execute(plan_);
    return out_;
  }

 private:
  std::vector<Complex> in_, out_;
  fftwf_plan plan_;
};

// Upper-tail quantile of the standard normal distribution, by bisection on erfc.
double NormalQuantile(double p) {
  double lo = 0.0, hi = 40.0;
  for (int i = 0; i < 200; ++i) {
    const double mid = 0.5 * (lo + hi);
    if (0.5 * std::erfc(mid / std::sqrt(2.0)) > p) lo = mid;
    else hi = mid;
  }
  return 0.5 * (lo + hi);
}

// Peak-over-mean that noise alone passes with probability `p` in one cell: the mean of
// K squared magnitudes is chi-square with 2K degrees of freedom over 2K (Wilson and
// Hilferty's cube-root approximation of its quantile).
double ChiSquareRatio(int blocks, double p) {
  const double dof = 2.0 * blocks;
  const double z = NormalQuantile(p);
  const double c = 1.0 - 2.0 / (9.0 * dof) + z * std::sqrt(2.0 / (9.0 * dof));
  return c * c * c;
}

int64_t BlockStart(int k, double fs) { return std::llround(k * fs / 1000.0); }

}  // namespace

bool ParseSampleLayout(const std::string& name, SampleLayout& out) {
  static const std::pair<const char*, SampleLayout> kNames[] = {
      {"packed2", SampleLayout::kPacked2}, {"packed1", SampleLayout::kPacked1},
      {"direct", SampleLayout::kDirect},   {"int8", SampleLayout::kInt8},
      {"ci8", SampleLayout::kCi8},         {"ci16", SampleLayout::kCi16}};
  for (const auto& [n, l] : kNames)
    if (name == n) {
      out = l;
      return true;
    }
  return false;
}

bool ReadRecording(const std::filesystem::path& path, const RecordingLayout& layout,
                   double skipMs, int32_t ms, std::vector<std::complex<float>>& out,
                   std::string& error) {
  const double fs = layout.samplingFrequency;
  if (!(fs >= 1000.0) || !(fs <= 200e6) || ms < 1 || ms > 100000 || !(skipMs >= 0.0)) {
    error = "the sampling rate must lie between 1 kHz and 200 MHz and the length be 1 to 100000 ms";
    return false;
  }
  const int64_t first = std::llround(skipMs * fs / 1000.0);
  const int64_t count = BlockStart(ms, fs);
  // Bytes a sample, or samples a byte for the packed layouts.
  int64_t byteOffset = 0, bytes = 0;
  switch (layout.layout) {
    case SampleLayout::kPacked2:
      byteOffset = first / 4, bytes = (first % 4 + count + 3) / 4;
      break;
    case SampleLayout::kPacked1:
      byteOffset = first / 8, bytes = (first % 8 + count + 7) / 8;
      break;
    case SampleLayout::kDirect:
    case SampleLayout::kInt8:
      byteOffset = first, bytes = count;
      break;
    case SampleLayout::kCi8:
      byteOffset = 2 * first, bytes = 2 * count;
      break;
    case SampleLayout::kCi16:
      byteOffset = 4 * first, bytes = 4 * count;
      break;
  }
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    error = fmt::format("{}: cannot be read", path.string());
    return false;
  }
  std::vector<unsigned char> raw(static_cast<size_t>(bytes));
  in.seekg(byteOffset);
  in.read(reinterpret_cast<char*>(raw.data()), bytes);
  if (in.gcount() != bytes) {
    error = fmt::format("{}: holds fewer than the {} ms asked for from {} ms on", path.string(),
                        ms, skipMs);
    return false;
  }
  out.assign(static_cast<size_t>(count), Complex{});
  const float centre = layout.layout == SampleLayout::kDirect
                           ? 0.5f * static_cast<float>((1 << std::clamp(layout.bits, 1, 8)) - 1)
                           : 0.0f;
  for (int64_t i = 0; i < count; ++i) {
    float re = 0.0f, im = 0.0f;
    switch (layout.layout) {
      case SampleLayout::kPacked2: {
        const int64_t s = first % 4 + i;
        re = static_cast<float>((raw[s / 4] >> (2 * (s % 4))) & 3) - 1.5f;
        break;
      }
      case SampleLayout::kPacked1: {
        const int64_t s = first % 8 + i;
        re = static_cast<float>((raw[s / 8] >> (s % 8)) & 1) - 0.5f;
        break;
      }
      case SampleLayout::kDirect:
        re = static_cast<float>(raw[i]) - centre;
        break;
      case SampleLayout::kInt8:
        re = static_cast<float>(static_cast<int8_t>(raw[i]));
        break;
      case SampleLayout::kCi8:
        re = static_cast<float>(static_cast<int8_t>(raw[2 * i]));
        im = static_cast<float>(static_cast<int8_t>(raw[2 * i + 1]));
        break;
      case SampleLayout::kCi16:
        re = static_cast<float>(static_cast<int16_t>(raw[4 * i] | raw[4 * i + 1] << 8));
        im = static_cast<float>(static_cast<int16_t>(raw[4 * i + 2] | raw[4 * i + 3] << 8));
        break;
    }
    out[i] = Complex(re, im);
  }
  return true;
}

std::vector<AcquisitionResult> Acquire(const std::vector<std::complex<float>>& samples,
                                       const RecordingLayout& layout,
                                       const AcquisitionOptions& options, double& threshold) {
  const double fsIn = layout.samplingFrequency;
  const int nIn = static_cast<int>(std::floor(fsIn / 1000.0));
  int blocks = 0;
  while (BlockStart(blocks + 1, fsIn) <= static_cast<int64_t>(samples.size())) ++blocks;
  std::vector<AcquisitionResult> results;
  if (nIn < 16 || blocks < 1) return results;
  // The search runs at about 4 MHz: after the mix, groups of `decimate` samples are
  // averaged, which keeps the code's main lobe and cuts the FFTs to a quarter at 16 MHz.
  const int decimate = std::max(1, static_cast<int>(fsIn / 4.0e6));
  const int n = nIn / decimate;
  const double fs = fsIn / decimate;

  // Doppler: whole FFT bins, each searched at three offsets a third of a bin apart, so a
  // signal lies within a sixth of a bin (167 Hz at 1 ms) of one tried frequency.
  const double bin = fs / n;
  const int bins = static_cast<int>(std::ceil(options.maxDoppler / bin));
  constexpr int kOffsets = 3;
  const int64_t cells = static_cast<int64_t>(n) * (2 * bins + 1) * kOffsets;
  threshold = options.threshold > 0.0 ? options.threshold : ChiSquareRatio(blocks, 1e-3 / cells);

  Fft forward(n, FFTW_FORWARD), inverse(n, FFTW_BACKWARD);
  // The spectra of every millisecond, mixed down by the IF and each offset.
  std::vector<std::vector<Complex>> spectra(static_cast<size_t>(kOffsets) * blocks);
  for (int o = 0; o < kOffsets; ++o)
    for (int k = 0; k < blocks; ++k) {
      const int64_t start = BlockStart(k, fsIn);
      const double f = layout.ifFrequency + o * bin / kOffsets;
      for (int i = 0; i < n; ++i) {
        Complex sum = 0.0f;
        for (int j = 0; j < decimate; ++j) {
          const int64_t at = start + static_cast<int64_t>(i) * decimate + j;
          const double phase = -2.0 * M_PI * std::fmod(f * at / fsIn, 1.0);
          sum += samples[at] * Complex(std::cos(phase), std::sin(phase));
        }
        forward.in()[i] = sum;
      }
      spectra[o * blocks + k] = forward.Run();
    }

  std::vector<int32_t> chips(kChipsPerCode);
  std::vector<float> code(n), acc(n), best(n);
  std::vector<Complex> codeSpectrum(n);
  const double samplesPerChip = fs / kChipRate;
  for (int prn = 1; prn <= kCodePrnCount; ++prn) {
    CaCodeChips(prn - 1, chips.data());
    for (int i = 0; i < n; ++i) {
      const int chip = static_cast<int>(std::floor(i / samplesPerChip)) % kChipsPerCode;
      code[i] = static_cast<float>(chips[chip]);
      forward.in()[i] = code[i];
    }
    const auto& c = forward.Run();
    for (int i = 0; i < n; ++i) codeSpectrum[i] = std::conj(c[i]);

    AcquisitionResult r;
    r.prn = prn;
    float peak = -1.0f;
    for (int o = 0; o < kOffsets; ++o)
      for (int d = -bins; d <= bins; ++d) {
        std::fill(acc.begin(), acc.end(), 0.0f);
        for (int k = 0; k < blocks; ++k) {
          const std::vector<Complex>& x = spectra[o * blocks + k];
          for (int m = 0; m < n; ++m) {
            int j = m + d;
            if (j < 0) j += n;
            if (j >= n) j -= n;
            inverse.in()[m] = x[j] * codeSpectrum[m];
          }
          const auto& y = inverse.Run();
          for (int m = 0; m < n; ++m) acc[m] += std::norm(y[m]);
        }
        const auto top = std::max_element(acc.begin(), acc.end());
        if (*top > peak) {
          peak = *top;
          r.codeSample = (top - acc.begin()) * static_cast<int64_t>(decimate);
          r.doppler = d * bin + o * bin / kOffsets;
          best = acc;
        }
      }
    // The mean away from the peak (beyond one chip on either side).
    double sum = 0.0;
    int64_t count = 0;
    const double guard = samplesPerChip + 1.0;
    for (int m = 0; m < n; ++m) {
      double dist = std::fabs(static_cast<double>(m - r.codeSample / decimate));
      dist = std::min(dist, n - dist);
      if (dist > guard) sum += best[m], ++count;
    }
    const double mean = count > 0 ? sum / count : 1.0;
    r.metric = mean > 0.0 ? peak / mean : 0.0;
    r.found = r.metric > threshold;
    r.codePhase = std::fmod(r.codeSample / (samplesPerChip * decimate), kChipsPerCode);
    r.cn0 = 10.0 * std::log10(std::max(r.metric - 1.0, 1e-9) * 1000.0);

    if (r.found) {
      // Despread at the found code phase, one complex sum a millisecond; squared to take
      // out the data bits, the phase then climbs at twice the frequency left over.
      std::vector<std::complex<double>> z(blocks);
      const double inPerChip = fsIn / kChipRate;
      for (int k = 0; k < blocks; ++k) {
        const int64_t start = BlockStart(k, fsIn);
        std::complex<double> s = 0.0;
        const double f = layout.ifFrequency + r.doppler;
        for (int i = 0; i < nIn; ++i) {
          const double chipAt = (i - r.codeSample) / inPerChip;
          int chip = static_cast<int>(std::floor(chipAt)) % kChipsPerCode;
          if (chip < 0) chip += kChipsPerCode;
          const double phase = -2.0 * M_PI * std::fmod(f * (start + i) / fsIn, 1.0);
          s += std::complex<double>(samples[start + i]) * static_cast<double>(chips[chip]) *
               std::complex<double>(std::cos(phase), std::sin(phase));
        }
        z[k] = s * s;
      }
      if (blocks >= 2) {
        // Unwrapped phase against time, least squares.
        std::vector<double> phase(blocks);
        phase[0] = std::arg(z[0]);
        for (int k = 1; k < blocks; ++k) {
          double step = std::arg(z[k] * std::conj(z[k - 1]));
          phase[k] = phase[k - 1] + step;
        }
        double tm = 0.0, pm = 0.0;
        for (int k = 0; k < blocks; ++k) tm += k, pm += phase[k];
        tm /= blocks, pm /= blocks;
        double num = 0.0, den = 0.0;
        for (int k = 0; k < blocks; ++k) num += (k - tm) * (phase[k] - pm), den += (k - tm) * (k - tm);
        const double radPerMs = num / den;
        r.doppler += radPerMs / (2.0 * 2.0 * M_PI * 0.001);
      }
    }
    results.push_back(r);
  }
  return results;
}

}  // namespace vorel::dif
