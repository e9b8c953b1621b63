// SPDX-License-Identifier: Apache-2.0

#include "host/SynthCommand.hpp"

#include <fmt/format.h>

#include <filesystem>
#include <system_error>

#include "host/JsonReport.hpp"
#include "host/OutputFile.hpp"
#include "host/Signals.hpp"
#include "host/TextReport.hpp"
#include "host/TileProgress.hpp"
#include "host/synth/SyntheticSurvey.hpp"

namespace Host {

ExitCode runSynth(const SynthOptions& options, Session& session) {
  const auto output = prepareOutputFile(options.output, {".las", ".laz"}, options.force);
  if (!output.ok()) return session.stop(output.stop());
  const bool hasBar = settleProgressMode(session.common(), session.terminal()) == ProgressMode::Bar;
  const auto progress = [&](double fraction) {
    if (hasBar) session.messages().setStatus(fmt::format("{:3.0f} % written", fraction * 100.0));
    return !stopRequested();
  };
  const auto survey = Synth::writeSyntheticSurvey(options.survey, *output, progress);
  session.messages().clearStatus();
  if (!survey.ok()) {
    if (stopRequested()) {
      return session.stop({ExitCode::Cancelled, "cancelled, nothing was written"});
    }
    return session.stop(failedStop(survey.error()));
  }
  SynthReport report;
  report.output = *output;
  report.pointCount = survey->pointCount;
  report.pulseCount = survey->pulseCount;
  report.waveformBytes = survey->waveformBytes;
  std::error_code error;
  const auto bytes = std::filesystem::file_size(*output, error);
  report.bytes = error ? 0 : bytes;
  report.use = session.use();
  return session.afterPrint(session.print(synthText(report), synthJson(report)), ExitCode::Done);
}

}  // namespace Host
