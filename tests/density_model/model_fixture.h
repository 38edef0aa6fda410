#pragma once
// A fresh electron density model that reads the data files shipped with the project.

#include <memory>

#include "density_model/model_state.h"
#include "test_support.h"

namespace vorel::density_model {

inline std::unique_ptr<ModelState> FreshState() {
  auto state = std::make_unique<ModelState>();
  state->searchDirs = {test::DataDir() / "nequick"};
  return state;
}

}  // namespace vorel::density_model
