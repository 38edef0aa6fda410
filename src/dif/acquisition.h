#pragma once
// A quick-look acquisition of a recording: which GPS L1 C/A satellites are in it, at what
// Doppler and code phase, and how strong. A parallel code-phase search (FFT over one
// millisecond) at each Doppler bin, summed without coherence over the milliseconds read;
// the found satellites' Doppler is then refined from the phase of their despread signal.

#include <complex>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace vorel::dif {

// How the samples lie in the file.
enum class SampleLayout {
  kPacked2,  // real, 2 bits, four samples a byte, the earliest in bits 1..0, levels 0..3
  kPacked1,  // real, 1 bit, eight samples a byte, the earliest in bit 0, levels 0..1
  kDirect,   // real, one sample a byte in its low bits, unsigned levels
  kInt8,     // real, signed bytes
  kCi8,      // complex, I then Q, signed bytes
  kCi16,     // complex, I then Q, signed 16-bit little-endian
};

struct RecordingLayout {
  double samplingFrequency = 16368000.0;  // Hz
  double ifFrequency = 4092000.0;         // Hz; 0 for baseband
  SampleLayout layout = SampleLayout::kPacked2;
  int32_t bits = 2;  // kDirect: bits a level (levels 0 .. 2^bits - 1, centred)
};

// Parses "packed2", "packed1", "direct", "int8", "ci8", "ci16"; false for anything else.
bool ParseSampleLayout(const std::string& name, SampleLayout& out);

// Reads `ms` milliseconds from `skipMs` on, as complex baseband-or-IF samples (real
// layouts have a zero imaginary part). Returns false with `error` naming the file when it
// cannot be read or holds fewer samples than asked for.
bool ReadRecording(const std::filesystem::path& path, const RecordingLayout& layout,
                   double skipMs, int32_t ms, std::vector<std::complex<float>>& out,
                   std::string& error);

struct AcquisitionOptions {
  int32_t maxDoppler = 10000;  // Hz, searched symmetrically
  // Detection threshold on the peak over the mean of the correlation; 0 picks one for a
  // false alarm about once in a thousand satellites searched.
  double threshold = 0.0;
};

struct AcquisitionResult {
  int32_t prn = 0;
  bool found = false;
  double doppler = 0.0;      // Hz, positive for an approaching satellite
  double codePhase = 0.0;    // chips, where the code period begins in the first millisecond
  int64_t codeSample = 0;    // the same in samples
  double cn0 = 0.0;          // dB-Hz, estimated from the correlation peak
  double metric = 0.0;       // peak over mean
};

// Searches PRN 1 to 32 over every whole millisecond of `samples`.
std::vector<AcquisitionResult> Acquire(const std::vector<std::complex<float>>& samples,
                                       const RecordingLayout& layout,
                                       const AcquisitionOptions& options, double& threshold);

}  // namespace vorel::dif
