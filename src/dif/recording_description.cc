#include "dif/recording_description.h"

#include <fmt/format.h>

#include <cmath>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>

namespace vorel::dif {
namespace {

using Json = nlohmann::ordered_json;

constexpr char kSigmfVersion[] = "1.0.0";
constexpr double kChipRate = 1023000.0;

std::string LayoutName(const RecordingDescription& d) {
  if (d.complexSamples) return d.bits == 16 ? "ci16" : "ci8";
  if (!d.packed) return "direct";
  return d.bits == 1 ? "packed1" : "packed2";
}

int32_t SamplesPerByte(const RecordingDescription& d) {
  if (!d.packed) return 1;
  return d.bits == 1 ? 8 : 4;
}

// Where L1 lies: the centre itself for the real form (its IF stands for L1), the centre
// plus the offset for the complex form.
double L1Of(const RecordingDescription& d) {
  return d.complexSamples ? d.centreFrequency + d.ifFrequency : d.centreFrequency;
}

Json ComplexGlobalObject(const RecordingDescription& d) {
  Json g;
  g["core:datatype"] = d.bits == 16 ? "ci16_le" : "ci8";
  g["core:sample_rate"] = d.samplingFrequency;
  g["core:version"] = kSigmfVersion;
  g["core:num_channels"] = 1;
  g["core:recorder"] = d.recorder;
  g["core:description"] = d.description;
  g["core:extensions"] =
      Json::array({Json{{"name", "vorel"}, {"version", "1.0.0"}, {"optional", true}}});
  g["core:geolocation"] = Json{{"type", "Point"},
                               {"coordinates", {d.longitude, d.latitude, d.altitude}}};
  g["vorel:sample_format"] = LayoutName(d);
  g["vorel:bits_per_sample"] = d.bits;
  g["vorel:real_samples"] = false;
  // L1 lies this far above core:frequency; a reader that knows only the core fields finds
  // it there too.
  g["vorel:if_frequency"] = d.ifFrequency;
  g["vorel:spectrum_inverted"] = false;
  // The scale is fixed for the whole file: no level moves from one millisecond to the next.
  g["vorel:amplitude"] = d.amplitude;
  g["vorel:noise_cn0_dbhz"] = d.noiseCn0 > 0.0 ? Json(d.noiseCn0) : Json(nullptr);
  g["vorel:clipped_values"] = d.heldValues;
  return g;
}

Json GlobalObject(const RecordingDescription& d) {
  if (d.complexSamples) return ComplexGlobalObject(d);
  Json g;
  // Bytes of unsigned levels; how many samples a byte holds says "vorel:sample_format",
  // which is why the extension is not optional for a packed file.
  g["core:datatype"] = "ru8";
  g["core:sample_rate"] = d.samplingFrequency;
  g["core:version"] = kSigmfVersion;
  g["core:num_channels"] = 1;
  g["core:recorder"] = d.recorder;
  g["core:description"] = d.description;
  g["core:extensions"] = Json::array(
      {Json{{"name", "vorel"}, {"version", "1.0.0"}, {"optional", !d.packed}}});
  g["core:geolocation"] = Json{{"type", "Point"},
                               {"coordinates", {d.longitude, d.latitude, d.altitude}}};
  g["vorel:sample_format"] = LayoutName(d);
  g["vorel:bits_per_sample"] = d.bits;
  g["vorel:samples_per_byte"] = SamplesPerByte(d);
  g["vorel:bit_order"] = d.packed ? "earliest sample in the lowest bits" : "one sample a byte";
  g["vorel:levels"] = fmt::format(
      "unsigned 0..{}, 0 the most negative; each millisecond quantised over its own range",
      (1 << d.bits) - 1);
  g["vorel:real_samples"] = true;
  g["vorel:if_frequency"] = d.ifFrequency;
  g["vorel:spectrum_inverted"] = false;
  return g;
}

Json CaptureObject(const RecordingDescription& d) {
  Json c;
  c["core:sample_start"] = 0;
  c["core:frequency"] = d.centreFrequency;
  c["core:datetime"] = d.startUtc;
  c["vorel:gps_week"] = d.gpsWeek;
  c["vorel:gps_seconds_of_week"] = d.gpsSecondsOfWeek;
  c["vorel:receiver"] = Json{{"latitude_deg", d.latitude},
                             {"longitude_deg", d.longitude},
                             {"altitude_m", d.altitude}};
  Json satellites = Json::array();
  for (const SatelliteAtStart& s : d.satellites)
    satellites.push_back(Json{{"prn", s.prn}, {"doppler_hz", std::round(s.doppler * 10.0) / 10.0}});
  c["vorel:satellites"] = satellites;
  return c;
}

}  // namespace

std::filesystem::path SigmfMetaPathFor(const std::filesystem::path& dataFile) {
  std::filesystem::path meta = dataFile;
  meta.replace_extension(".sigmf-meta");
  return meta;
}

std::string SigmfMetaJson(const RecordingDescription& d) {
  Json doc;
  doc["global"] = GlobalObject(d);
  doc["captures"] = Json::array({CaptureObject(d)});
  Json annotation;
  annotation["core:sample_start"] = 0;
  annotation["core:sample_count"] = d.samples;
  annotation["core:label"] = "GPS L1 C/A";
  annotation["core:freq_lower_edge"] = L1Of(d) - kChipRate;
  annotation["core:freq_upper_edge"] = L1Of(d) + kChipRate;
  doc["annotations"] = Json::array({annotation});
  return doc.dump(2) + "\n";
}

namespace {

bool LayoutFromCoreType(const std::string& type, RecordingLayout& layout) {
  if (type == "ri8") layout.layout = SampleLayout::kInt8;
  else if (type == "ci8") layout.layout = SampleLayout::kCi8;
  else if (type == "ci16_le") layout.layout = SampleLayout::kCi16;
  else return false;
  layout.ifFrequency = 0.0;  // a core type alone says nothing of an IF
  return true;
}

}  // namespace

bool ReadSigmfLayout(const std::filesystem::path& metaFile, RecordingLayout& layout,
                     std::string& error) {
  std::ifstream in(metaFile);
  if (!in) {
    error = fmt::format("{}: cannot be read", metaFile.string());
    return false;
  }
  Json doc = Json::parse(in, nullptr, false);
  if (doc.is_discarded() || !doc.is_object() || !doc.contains("global") ||
      !doc["global"].is_object()) {
    error = fmt::format("{}: not a SigMF description (no \"global\" object)", metaFile.string());
    return false;
  }
  const Json& g = doc["global"];
  const Json rate = g.value("core:sample_rate", Json());
  if (!rate.is_number() || !(rate.get<double>() > 0.0)) {
    error = fmt::format("{}: no positive \"core:sample_rate\"", metaFile.string());
    return false;
  }
  RecordingLayout read = layout;
  read.samplingFrequency = rate.get<double>();
  const std::string format = g.value("vorel:sample_format", std::string());
  if (!format.empty()) {
    if (!ParseSampleLayout(format, read.layout)) {
      error = fmt::format("{}: \"vorel:sample_format\" \"{}\" is not a layout this program reads",
                          metaFile.string(), format);
      return false;
    }
    read.bits = g.value("vorel:bits_per_sample", read.bits);
    read.ifFrequency = g.value("vorel:if_frequency", 0.0);
  } else if (!LayoutFromCoreType(g.value("core:datatype", std::string()), read)) {
    error = fmt::format("{}: \"core:datatype\" \"{}\" is not one this program reads "
                        "(ri8, ci8, ci16_le)",
                        metaFile.string(), g.value("core:datatype", std::string()));
    return false;
  }
  layout = read;
  return true;
}

namespace {

// Collects the configuration a line at a time.
struct ConfigLines {
  fmt::memory_buffer buffer;
  template <typename... Args>
  void operator()(fmt::format_string<Args...> format, Args&&... args) {
    fmt::format_to(std::back_inserter(buffer), format, std::forward<Args>(args)...);
    buffer.push_back('\n');
  }
};

// The largest decimation that leaves at least 4 MS/s at a rate that is no whole multiple
// of the chip rate (the code would then meet the same sample phases ms after ms).
int32_t ReceiverDecimation(int64_t fs) {
  int32_t best = 1;
  for (int32_t d = 2; d <= 16; ++d) {
    if (fs % d != 0 || fs / d < 4000000) continue;
    if ((fs / d) % 1023000 == 0) continue;
    best = d;
  }
  return best;
}

}  // namespace

bool GnssSdrConfig(const RecordingDescription& d, const GnssSdrOptions& options,
                   std::string& config, std::string& error) {
  if (d.packed && d.bits == 1) {
    error = "GNSS-SDR has no reader for 1-bit packed samples; write them one a byte (direct)";
    return false;
  }
  const int64_t fs = std::llround(d.samplingFrequency);
  const int32_t decimation = ReceiverDecimation(fs);
  const double internal = static_cast<double>(fs / decimation);
  // The low-pass after the mix keeps the C/A main lobe and, at an IF well above it,
  // removes the mean of the unsigned levels, which the mix moves to -IF.
  const double bandwidth = std::min(2.0e6, 0.38 * internal);
  const double transition = std::min(1.0e6, 0.2 * internal);
  const bool twoBitPacked = !d.complexSamples && d.packed && d.bits == 2;
  // The two-bit reader takes each field as two's complement (2v+1): our unsigned levels
  // 0,1,2,3 arrive as +1,+3,-3,-1, the sign inverted, which the tracking loops absorb.
  const char* source = twoBitPacked ? "Two_Bit_Packed_File_Signal_Source" : "File_Signal_Source";
  const char* stream = twoBitPacked ? "float" : "byte";
  // Complex samples: interleaved I then Q, made complex by the adapter; the filter then
  // only moves L1 from the offset to zero (and, with no offset, nothing at all).
  const char* item = d.complexSamples ? (d.bits == 16 ? "ishort" : "ibyte") : "byte";
  if (d.complexSamples) stream = "gr_complex";
  const std::string data = std::filesystem::absolute(d.dataFile).lexically_normal().string();
  const std::string out = std::filesystem::absolute(options.outputFolder).lexically_normal().string();
  const int32_t channels = std::max(1, d.channelCount);

  ConfigLines line;
  line("; GNSS-SDR configuration for {}", d.dataFile.filename().string());
  if (d.complexSamples)
    line("; written by {}: GPS L1 C/A, complex baseband ({}), {} Hz, L1 at {} Hz", d.recorder,
         d.bits == 16 ? "ci16_le" : "ci8", d.samplingFrequency, d.ifFrequency);
  else
    line("; written by {}: GPS L1 C/A, real samples at IF {} Hz, {} Hz, {} bit(s), {}",
         d.recorder, d.ifFrequency, d.samplingFrequency, d.bits,
         d.packed ? "packed" : "one sample a byte");
  line("; run: gnss-sdr --config_file=<this file>");
  line("");
  line("[GNSS-SDR]");
  line("GNSS-SDR.internal_fs_sps={}", internal);
  line("GNSS-SDR.telecommand_enabled=false");
  line("GNSS-SDR.SUPL_gps_enabled=false");
  line("GNSS-SDR.SUPL_read_gps_assistance_xml=false");
  line("GNSS-SDR.AGNSS_XML_enabled=false");
  line("");
  line("SignalSource.implementation={}", source);
  line("SignalSource.filename={}", data);
  line("SignalSource.item_type={}", item);
  if (!d.complexSamples) line("SignalSource.sample_type=real");
  line("SignalSource.big_endian_bytes=false");
  line("SignalSource.sampling_frequency={}", fs);
  line("SignalSource.samples=0");
  line("SignalSource.repeat=false");
  line("SignalSource.dump=false");
  line("SignalSource.enable_throttle_control=false");
  line("");
  line("SignalConditioner.implementation=Signal_Conditioner");
  if (d.complexSamples) {
    line("DataTypeAdapter.implementation={}",
         d.bits == 16 ? "Ishort_To_Complex" : "Ibyte_To_Complex");
  } else {
    line("DataTypeAdapter.implementation=Pass_Through");
    line("DataTypeAdapter.item_type={}", stream);
  }
  line("InputFilter.implementation=Freq_Xlating_Fir_Filter");
  line("InputFilter.input_item_type={}", stream);
  line("InputFilter.output_item_type=gr_complex");
  line("InputFilter.taps_item_type=float");
  line("InputFilter.filter_type=lowpass");
  line("InputFilter.bw={:.0f}", bandwidth);
  line("InputFilter.tw={:.0f}", transition);
  line("InputFilter.sampling_frequency={}", fs);
  line("InputFilter.IF={}", d.ifFrequency);
  line("InputFilter.decimation_factor={}", decimation);
  line("InputFilter.dump=false");
  line("Resampler.implementation=Pass_Through");
  line("Resampler.item_type=gr_complex");
  line("");
  line("; one channel for each satellite the recording holds");
  line("Channels_1C.count={}", channels);
  line("Channels.in_acquisition=1");
  line("");
  line("Acquisition_1C.implementation=GPS_L1_CA_PCPS_Acquisition");
  line("Acquisition_1C.item_type=gr_complex");
  line("Acquisition_1C.coherent_integration_time_ms=1");
  line("Acquisition_1C.pfa=0.01");
  line("Acquisition_1C.doppler_max=6000");
  line("Acquisition_1C.doppler_step=250");
  line("Acquisition_1C.max_dwells=1");
  line("Acquisition_1C.dump=false");
  line("");
  line("Tracking_1C.implementation=GPS_L1_CA_DLL_PLL_Tracking");
  line("Tracking_1C.item_type=gr_complex");
  line("Tracking_1C.pll_bw_hz=35.0");
  line("Tracking_1C.dll_bw_hz=2.0");
  line("Tracking_1C.enable_fll_pull_in=true");
  line("Tracking_1C.fll_bw_hz=10.0");
  line("Tracking_1C.pull_in_time_s=2");
  line("Tracking_1C.early_late_space_chips=0.5");
  line("Tracking_1C.dump=false");
  line("");
  line("TelemetryDecoder_1C.implementation=GPS_L1_CA_Telemetry_Decoder");
  line("TelemetryDecoder_1C.dump=false");
  line("Observables.implementation=Hybrid_Observables");
  line("Observables.dump=false");
  line("");
  line("PVT.implementation=RTKLIB_PVT");
  line("PVT.positioning_mode=Single");
  line("PVT.iono_model={}", options.ionosphereModel ? "Broadcast" : "OFF");
  line("PVT.trop_model={}", options.troposphereModel ? "Saastamoinen" : "OFF");
  line("PVT.elevation_mask=5");
  line("PVT.output_rate_ms=1000");
  line("PVT.display_rate_ms=1000");
  line("PVT.output_path={}", out);
  line("PVT.rinex_output_enabled=true");
  line("PVT.kml_output_enabled=true");
  line("PVT.nmea_output_file_enabled=true");
  line("PVT.gpx_output_enabled=false");
  line("PVT.geojson_output_enabled=false");
  line("PVT.xml_output_enabled=false");
  line("PVT.rtcm_output_file_enabled=false");
  line("PVT.flag_nmea_tty_port=false");
  line("PVT.flag_rtcm_server=false");
  line("PVT.flag_rtcm_tty_port=false");
  line("PVT.enable_monitor=false");
  line("PVT.enable_monitor_ephemeris=false");
  line("PVT.dump=false");
  config = fmt::to_string(line.buffer);
  return true;
}

}  // namespace vorel::dif
