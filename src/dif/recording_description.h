#pragma once
// What a receiver must know to read one of our recordings, written beside it: a SigMF
// description (JSON) and a GNSS-SDR configuration that reads the file exactly as written.
// The SigMF file is also read back, so that `check` finds the rate, IF and format itself.

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "dif/acquisition.h"

namespace vorel::dif {

struct SatelliteAtStart {
  int32_t prn = 0;
  double doppler = 0.0;  // Hz, positive for an approaching satellite
};

struct RecordingDescription {
  std::filesystem::path dataFile;  // the samples; the descriptions name it by its file name
  double samplingFrequency = 0.0;  // Hz, samples in the file per second
  double ifFrequency = 0.0;        // Hz
  double centreFrequency = 1575420000.0;  // Hz, the carrier the IF stands for
  int32_t bits = 2;
  bool packed = true;
  bool complexSamples = false;  // I then Q, signed, `bits` each; the IF is then the offset
                                // of L1 from centreFrequency
  // The complex form's fixed scale: a satellite's amplitude in levels, the noise's C/N0
  // (dB-Hz; 0: no noise) and the values held at the limits.
  double amplitude = 0.0;
  double noiseCn0 = 0.0;
  int64_t heldValues = 0;
  int64_t samples = 0;    // in the file
  std::string startUtc;   // ISO 8601, "2010-07-01T10:00:00Z"
  int32_t gpsWeek = 0;
  double gpsSecondsOfWeek = 0.0;
  double latitude = 0.0, longitude = 0.0, altitude = 0.0;  // degrees, degrees, metres
  std::vector<SatelliteAtStart> satellites;  // in the first millisecond
  int32_t channelCount = 0;  // satellites the recording holds at any time
  std::string recorder;      // "vorel 5.1"
  std::string description;
};

// The ".sigmf-meta" beside a data file: "rec.bin" -> "rec.sigmf-meta", and a
// "rec.sigmf-data" -> "rec.sigmf-meta" likewise.
std::filesystem::path SigmfMetaPathFor(const std::filesystem::path& dataFile);

// SigMF 1.x metadata: global core fields, one capture from sample 0, one annotation over
// the whole file; the IF, the sample layout and the scenario under the "vorel:" namespace.
std::string SigmfMetaJson(const RecordingDescription& d);

// Reads rate, IF and layout from a SigMF file: our own "vorel:" fields, or for other
// recorders the core datatype (ri8/ci8/ci16_le) with IF 0. Returns false with `error`
// naming the file when it cannot be read or says nothing a reader can use.
bool ReadSigmfLayout(const std::filesystem::path& metaFile, RecordingLayout& layout,
                     std::string& error);

struct GnssSdrOptions {
  std::filesystem::path outputFolder;  // where the receiver writes RINEX, KML and NMEA
  bool ionosphereModel = false;        // broadcast ionosphere in the fix
  bool troposphereModel = false;       // Saastamoinen troposphere in the fix
};

// A GNSS-SDR 0.0.17 configuration for GPS L1 C/A that reads `d.dataFile`. Returns false
// with `error` for a layout that receiver has no reader for (1 bit packed).
bool GnssSdrConfig(const RecordingDescription& d, const GnssSdrOptions& options,
                   std::string& config, std::string& error);

}  // namespace vorel::dif
