#pragma once
// The model's two commands, `profile` and `tec`, as library operations: arguments in a
// plain struct, text out in a string, and 0 or -1 with a message for the user.
//
//   profile  one line per height: "<height km, %.3f> <density m^-3, %.6e>", heights
//            from hmin while below hmax, step by step (the defaults give the vertical
//            profile plot's 1000 points, 0 to 999 km).
//   tec      one line: "<TEC in 1e15 m^-2, %.6f> <L1 delay in m, %.6f>".

#include <string>

#include "density_model/model_state.h"

namespace vorel::density_model {

struct ProfileArgs {
  double lat = 0.0, lon = 0.0;
  int month = 1;
  double ut = 0.0;
  double flux = 0.0;
  double hmin = 0.0, hmax = 1000.0, step = 1.0;  // km
};

struct TecArgs {
  double lat1 = 0.0, lon1 = 0.0, h1 = 0.0;
  double lat2 = 0.0, lon2 = 0.0, h2 = 0.0;
  int month = 1;
  double ut = 0.0;
  double flux = 0.0;
};

// Appends the profile to `out`. On bad arguments or a model data failure returns -1,
// writes nothing and puts the reason in `error`.
int RunProfile(ModelState& state, const ProfileArgs& args, std::string& out, std::string& error);

// Appends the TEC line to `out`; -1 with `error` as above.
int RunTec(ModelState& state, const TecArgs& args, std::string& out, std::string& error);

}  // namespace vorel::density_model
