// SPDX-License-Identifier: Apache-2.0
//
// BasicConverterDefs: the base of every converter operation. It holds what the host sets before a
// run (input, output names, filters, progress) and what it reads afterwards (the message list).

#pragma once

#include <list>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "datamodel/fiber/Bundle.hpp"
#include "datamodel/memcore/LoaderProgress.hpp"

namespace ConvLib {

/// How files are read into the input bundle.
enum class myReadType {  // NOLINT(readability-identifier-naming): the host's own spelling
  OnDemand,              ///< structure and facts only; point data when they are needed
  Everything,            ///< all point data at once
};

class FIBER_API BasicConverterDefs {
 public:
  BasicConverterDefs() = default;
  virtual ~BasicConverterDefs() = default;
  BasicConverterDefs(const BasicConverterDefs&) = delete;
  BasicConverterDefs& operator=(const BasicConverterDefs&) = delete;

  /// Report of the operation's own parameters.
  virtual std::string printSecondary() = 0;
  /// The user's selection; an empty filter accepts everything.
  virtual bool UseThisGrid(const std::string& name) const;
  virtual bool UseThisTime(const double& time) const;
  virtual bool UseThisField(const std::string& name);
  /// Runs the operation.
  virtual bool Run() = 0;
  /// Fills the input bundle from the declared input files; false appends the reason to `messages`.
  virtual bool loadFilesIntoBundle(myReadType type);

  /// Report of the base's parameters.
  std::string printParameters() const;
  /// Records provenance on an output grid as its attributes "Source" and "Description" (texts)
  /// and copies those of `source`, when given, first. The two numbers are reserved.
  void addInfoToGrid(const std::string& source, Fiber::Grid& grid, const std::string& description,
                     const MemCore::StrongPtr<Fiber::Grid>& sourceGrid, const int& reserved,
                     const int& alsoReserved);
  /// Appends to the message list. Threads: any; the lock is held for the append alone.
  void appendMessage(const std::string& text);

  // Set by the host before a run.
  Fiber::BundlePtr inputBundle;
  std::string outputDirectory;
  std::string outputFileName;
  std::string outputGridName = "myGrid";
  MemCore::StrongPtr<MemCore::LoaderProgress> saveProgress;
  MemCore::StrongPtr<MemCore::LoaderProgress> tileProgress;
  std::string provenanceSource;
  std::string provenanceDescription;
  MemCore::StrongPtr<Fiber::StorageTransformations> storageTransformations;
  /// Empty handle: nothing was declared.
  MemCore::StrongPtr<std::vector<std::string>> inputFiles;
  std::set<std::string> gridFilter;
  std::set<double> timeFilter;
  std::set<std::string> fieldFilter;

  /// Error and status texts of the runs so far, in the order in which they arose.
  std::list<std::string> messages;

 private:
  std::mutex messageMutex_;
};

}  // namespace ConvLib
