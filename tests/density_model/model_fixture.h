#pragma once
// A fresh electron density model that reads the data files shipped with the project.

#include <filesystem>
#include <initializer_list>
#include <memory>

#include "density_model/model_state.h"
#include "test_support.h"

namespace vorel::density_model {

inline std::unique_ptr<ModelState> FreshState() {
  auto state = std::make_unique<ModelState>();
  state->searchDirs = {test::DataDir() / "nequick"};
  return state;
}

// A model that searches `dir` alone, holding copies of the named shipped files.
inline std::unique_ptr<ModelState> StateIn(const test::ScratchDir& dir,
                                           std::initializer_list<const char*> copies = {}) {
  for (const char* name : copies)
    std::filesystem::copy_file(test::DataDir() / "nequick" / name, dir / name);
  auto state = std::make_unique<ModelState>();
  state->searchDirs = {dir.path()};
  return state;
}

}  // namespace vorel::density_model
