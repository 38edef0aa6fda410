// The descriptions written beside a recording: the SigMF fields a reader needs, reading
// them back, and the GNSS-SDR keys that decide whether the receiver reads the samples
// as they lie in the file.

#include "dif/recording_description.h"

#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <regex>
#include <sstream>

#include "test_support.h"

namespace vorel::dif {
namespace {

RecordingDescription Munich() {
  RecordingDescription d;
  d.dataFile = "/tmp/rec.bin";
  d.samplingFrequency = 16368000.0;
  d.ifFrequency = 4092000.0;
  d.bits = 2;
  d.packed = true;
  d.samples = 16368000LL * 120;
  d.startUtc = "2010-07-01T10:00:00Z";
  d.latitude = 48.1;
  d.longitude = 11.6;
  d.altitude = 520.0;
  d.satellites = {{5, -1287.46}, {15, 2916.5}};
  d.channelCount = 11;
  d.recorder = "vorel test";
  return d;
}

TEST(SigmfMeta, CarriesTheRequiredCoreFieldsAndOurLayout) {
  const auto doc = nlohmann::json::parse(SigmfMetaJson(Munich()));
  const auto& g = doc.at("global");
  EXPECT_EQ(g.at("core:datatype"), "ru8");
  EXPECT_EQ(g.at("core:version").get<std::string>().substr(0, 2), "1.");
  EXPECT_DOUBLE_EQ(g.at("core:sample_rate").get<double>(), 16368000.0);
  EXPECT_TRUE(g.contains("core:recorder"));
  // A namespace used in the file must be declared, and a packed file cannot be read
  // without it.
  ASSERT_EQ(g.at("core:extensions").size(), 1u);
  EXPECT_EQ(g.at("core:extensions")[0].at("name"), "vorel");
  EXPECT_FALSE(g.at("core:extensions")[0].at("optional").get<bool>());
  // GeoJSON orders a point longitude, latitude, height.
  EXPECT_DOUBLE_EQ(g.at("core:geolocation").at("coordinates")[0].get<double>(), 11.6);
  EXPECT_EQ(g.at("vorel:sample_format"), "packed2");
  EXPECT_EQ(g.at("vorel:samples_per_byte"), 4);
  EXPECT_DOUBLE_EQ(g.at("vorel:if_frequency").get<double>(), 4092000.0);
  for (const auto& [key, value] : g.items())
    EXPECT_TRUE(key.rfind("core:", 0) == 0 || key.rfind("vorel:", 0) == 0) << key;

  ASSERT_EQ(doc.at("captures").size(), 1u);
  const auto& c = doc.at("captures")[0];
  EXPECT_EQ(c.at("core:sample_start"), 0);
  EXPECT_DOUBLE_EQ(c.at("core:frequency").get<double>(), 1575.42e6);
  EXPECT_TRUE(std::regex_match(c.at("core:datetime").get<std::string>(),
                               std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d(\.\d+)?Z)")));
  ASSERT_EQ(c.at("vorel:satellites").size(), 2u);
  EXPECT_EQ(c.at("vorel:satellites")[0].at("prn"), 5);
  EXPECT_NEAR(c.at("vorel:satellites")[0].at("doppler_hz").get<double>(), -1287.5, 0.051);
  const auto& a = doc.at("annotations")[0];
  EXPECT_EQ(a.at("core:sample_count").get<int64_t>(), 16368000LL * 120);
}

TEST(SigmfMeta, ReadsBackOursAndTheCoreTypesOfOthers) {
  test::ScratchDir dir("sigmf-read");
  RecordingDescription d = Munich();
  d.samplingFrequency = 5456000.0;
  d.ifFrequency = 1364000.0;
  d.packed = false;
  d.bits = 1;
  test::WriteFile(dir / "ours.sigmf-meta", SigmfMetaJson(d));
  RecordingLayout layout;
  std::string error;
  ASSERT_TRUE(ReadSigmfLayout(dir / "ours.sigmf-meta", layout, error)) << error;
  EXPECT_EQ(layout.layout, SampleLayout::kDirect);
  EXPECT_EQ(layout.bits, 1);
  EXPECT_DOUBLE_EQ(layout.samplingFrequency, 5456000.0);
  EXPECT_DOUBLE_EQ(layout.ifFrequency, 1364000.0);

  // Another recorder's complex baseband file: the core type alone, IF 0.
  test::WriteFile(dir / "other.sigmf-meta",
                  R"({"global": {"core:datatype": "ci16_le", "core:sample_rate": 4e6,
                      "core:version": "1.0.0"}, "captures": [], "annotations": []})");
  ASSERT_TRUE(ReadSigmfLayout(dir / "other.sigmf-meta", layout, error)) << error;
  EXPECT_EQ(layout.layout, SampleLayout::kCi16);
  EXPECT_DOUBLE_EQ(layout.ifFrequency, 0.0);

  const std::map<std::string, std::string> bad = {
      {"not-json", "{ global"},
      {"no-rate", R"({"global": {"core:datatype": "ci8", "core:version": "1.0.0"}})"},
      {"float", R"({"global": {"core:datatype": "cf32_le", "core:sample_rate": 1e6}})"}};
  for (const auto& [name, text] : bad) {
    test::WriteFile(dir / (name + ".sigmf-meta"), text);
    RecordingLayout untouched;
    EXPECT_FALSE(ReadSigmfLayout(dir / (name + ".sigmf-meta"), untouched, error)) << name;
    EXPECT_NE(error.find(name), std::string::npos) << error;
    EXPECT_DOUBLE_EQ(untouched.samplingFrequency, RecordingLayout().samplingFrequency);
  }
  EXPECT_EQ(SigmfMetaPathFor("/a/rec.bin"), "/a/rec.sigmf-meta");
}

std::map<std::string, std::string> Keys(const std::string& config) {
  std::map<std::string, std::string> keys;
  std::istringstream in(config);
  std::string line;
  while (std::getline(in, line)) {
    if (line.empty() || line[0] == ';' || line[0] == '[') continue;
    const size_t eq = line.find('=');
    EXPECT_NE(eq, std::string::npos) << line;
    EXPECT_FALSE(keys.count(line.substr(0, eq))) << "twice: " << line;
    keys[line.substr(0, eq)] = line.substr(eq + 1);
  }
  return keys;
}

TEST(GnssSdrConfig, ReadsTheFileAsWritten) {
  RecordingDescription d = Munich();
  GnssSdrOptions options;
  options.outputFolder = "/tmp/out";
  std::string config, error;
  ASSERT_TRUE(GnssSdrConfig(d, options, config, error)) << error;
  auto k = Keys(config);
  EXPECT_EQ(k["SignalSource.implementation"], "Two_Bit_Packed_File_Signal_Source");
  EXPECT_EQ(k["SignalSource.filename"], "/tmp/rec.bin");
  EXPECT_EQ(k["SignalSource.big_endian_bytes"], "false");  // earliest sample lowest
  EXPECT_EQ(k["SignalSource.sampling_frequency"], "16368000");
  EXPECT_EQ(k["InputFilter.IF"], "4092000");
  // 16.368 MHz / 3 = 5.456 MHz; / 4 would be 4 x 1.023 MHz, which the code's sample
  // phases repeat on.
  EXPECT_EQ(k["InputFilter.decimation_factor"], "3");
  EXPECT_EQ(k["GNSS-SDR.internal_fs_sps"], "5456000");
  EXPECT_EQ(k["Channels_1C.count"], "11");
  EXPECT_EQ(k["PVT.output_path"], "/tmp/out");
  EXPECT_EQ(k["PVT.iono_model"], "OFF");
  EXPECT_EQ(k["DataTypeAdapter.item_type"], k["InputFilter.input_item_type"]);

  // One level a byte: the plain file source, bytes all the way to the filter; at
  // 5.456 MHz there is no room to decimate, at 40.92 MHz 6 gives 6.82 MHz.
  d.packed = false;
  d.samplingFrequency = 5456000.0;
  ASSERT_TRUE(GnssSdrConfig(d, options, config, error));
  k = Keys(config);
  EXPECT_EQ(k["SignalSource.implementation"], "File_Signal_Source");
  EXPECT_EQ(k["InputFilter.input_item_type"], "byte");
  EXPECT_EQ(k["InputFilter.decimation_factor"], "1");
  d.samplingFrequency = 40920000.0;
  ASSERT_TRUE(GnssSdrConfig(d, options, config, error));
  EXPECT_EQ(Keys(config)["InputFilter.decimation_factor"], "6");

  d.packed = true;
  d.bits = 1;
  EXPECT_FALSE(GnssSdrConfig(d, options, config, error));
  EXPECT_NE(error.find("1-bit packed"), std::string::npos);
}

}  // namespace
}  // namespace vorel::dif
