// SPDX-License-Identifier: Apache-2.0

#include "host/OptionDefinitions.hpp"

#include <limits>

#include "host/FlagBuilders.hpp"
#include "host/HelpFormatter.hpp"

namespace Host {

namespace {

constexpr int kMostThreads = 4096;
constexpr auto kMostPointsPerTile = std::numeric_limits<std::uint32_t>::max();

constexpr const char* kInputGroup = "Input";
constexpr const char* kTilingGroup = "Tiles";
constexpr const char* kFilterGroup = "Selection";
constexpr const char* kOutputGroup = "Output";
constexpr const char* kSurveyGroup = "Survey";
constexpr const char* kPointFileGroup = "Point files";

void addText(CLI::App& app, const FlagText& flag, std::string& target) {
  app.add_option(flag.names, target, flag.help)->type_name(flag.valueName)->group(flag.group);
}

void defineInputs(CLI::App& app, std::vector<std::string>& inputs) {
  app.add_option("INPUT", inputs,
                 ".las, .laz, .xyz, .txt, .csv or .f5 files, folders of them, or\n"
                 "patterns in quotes. Several files of points are one cloud")
      ->required()
      ->type_name("");
}

void defineColumns(CLI::App& app, std::vector<std::string>& columns) {
  addList(app,
          {"--columns", "NAMES",
           "What the columns of text files are: x,y,z and other names;\n"
           "- leaves a column out [as the header says]",
           kInputGroup},
          parseColumnNames, storeIn(columns));
}

/// A repeatable flag of names.
void addNames(CLI::App& app, const FlagText& flag, std::set<std::string>& target) {
  app.add_option(flag.names, target, flag.help)
      ->type_name(flag.valueName)
      ->group(flag.group)
      ->allow_extra_args(false);
}

void defineFilters(CLI::App& app, FilterOptions& filters) {
  // Repeatable flags keep every value in a list of texts, read one by one.
  app.add_option_function<std::vector<std::string>>(
         "--time",
         [&filters](const std::vector<std::string>& texts) {
           for (const std::string& text : texts) {
             const auto time = parseNumber(text);
             if (!time.ok()) throw CLI::ValidationError("--time", time.error());
             filters.times.insert(time.value());
           }
         },
         "Take only this time; repeatable")
      ->type_name("T")
      ->group(kFilterGroup)
      ->allow_extra_args(false);
  addNames(app, {"--grid", "NAME", "Take only this grid; repeatable", kFilterGroup}, filters.grids);
  addNames(app,
           {"--field", "NAME", "Take only this field (positions always come along);\nrepeatable",
            kFilterGroup},
           filters.fields);
}

void defineTiling(CLI::App& app, TilingOptions& tiling) {
  addList(app,
          {"--fragment-length", "X[,Y[,Z]]",
           "Edge lengths of a tile; one value is for x and y, z 0 spans the\n"
           "cloud. Without it, five million points per tile are aimed at",
           kTilingGroup},
          parseFragmentLength, storeIn(tiling.fragmentLength));
  CLI::Option* perTile =
      addParsed(app,
                {"--points-per-tile", "N",
                 "Choose x and y so that a tile holds N points on average, such\nas 2M or 500k",
                 kTilingGroup},
                countParser<std::uint64_t>(1, kMostPointsPerTile), storeIn(tiling.pointsPerTile));
  perTile->excludes("--fragment-length");
  addParsed(
      app,
      {"--overlap", "F", "Widen tiles on every side by F times their length [0]", kTilingGroup},
      parseOverlap, storeIn(tiling.overlap));
  addParsed(app,
            {"--min-points", "N", "Write only tiles with more than N points [0]", kTilingGroup},
            countParser<std::uint32_t>(0, std::numeric_limits<std::uint32_t>::max()),
            storeCount(tiling.minPoints));
  addList(app,
          {"--start", "X,Y,Z", "Lower corner of the box to tile, instead of the cloud's own",
           kTilingGroup},
          parsePoint, storeIn(tiling.start));
  addList(app, {"--end", "X,Y,Z", "Upper corner likewise", kTilingGroup}, parsePoint,
          storeIn(tiling.end));
}

void defineDurability(CLI::App& app, bool& durable) {
  app.add_flag_function(
         "--no-sync", [&durable](std::int64_t) { durable = false; },
         "Do not wait until the disk has each file: faster, but a power\n"
         "failure may cost files that were reported as written")
      ->group(kOutputGroup);
}

void defineStorage(CLI::App& app, StorageOptions& storage) {
  addChoice(app,
            {"--storage", "KIND",
             "grid: smallest, coordinates as whole numbers where exact [grid]\n"
             "deflate: compressed doubles; raw: uncompressed",
             kOutputGroup},
            {{"grid", Fiber::StorageKind::Grid},
             {"deflate", Fiber::StorageKind::Deflate},
             {"raw", Fiber::StorageKind::Raw}},
            storage.kind);
  defineDurability(app, storage.durable);
}

void defineKeepOrder(CLI::App& app, bool& keepOrder) {
  app.add_flag("--keep-order", keepOrder,
               "Add the fields SourceFile and SourceIndex: which file each point\n"
               "came from, and its place there")
      ->group(kOutputGroup);
}

void defineOutput(CLI::App& app, const char* help, std::string& output) {
  app.add_option("-o,--output", output, help)->required()->type_name("FILE")->group(kOutputGroup);
}

void defineForce(CLI::App& app, const char* help, bool& force) {
  app.add_flag("--force", force, help)->group(kOutputGroup);
}

}  // namespace

void defineCommonOptions(CLI::App& app, CommonOptions& options) {
  app.set_version_flag("-V,--version", "refragment " REFRAGMENT_VERSION);
  app.add_flag_function(
         "-q,--quiet", [&options](std::int64_t) { options.verbosity = Verbosity::Quiet; },
         "Say nothing but warnings and errors")
      ->group(kCommonGroup);
  app.add_flag_function(
         "-v,--verbose", [&options](std::int64_t) { options.verbosity = Verbosity::Verbose; },
         "Say what happens in detail")
      ->group(kCommonGroup)
      ->excludes("--quiet");
  app.add_flag("--json", options.json, "Print the result as one JSON object")->group(kCommonGroup);
  addChoice(app,
            {"--progress", "MODE",
             "auto: a bar if standard error is a terminal [auto]; bar; json:\n"
             "one object per line on standard error; none",
             kCommonGroup},
            {{"auto", ProgressMode::Auto},
             {"bar", ProgressMode::Bar},
             {"json", ProgressMode::Json},
             {"none", ProgressMode::None}},
            options.progress);
  addText(app, {"--log", "FILE", "Append all messages to a file", kCommonGroup}, options.logFile);
  addParsed(app, {"--threads", "N", "Use N threads [all]", kCommonGroup},
            countParser(1, kMostThreads), storeCount(options.threadCount));
  addParsed(app,
            {"--memory", "SIZE",
             "Keep decoded points in at most so much memory, such as 8G\n[half]", kCommonGroup},
            parseByteSize, storeIn(options.memoryBytes));
}

void defineInfoOptions(CLI::App& app, InfoOptions& options) {
  defineInputs(app, options.inputs);
  defineColumns(app, options.columns);
  defineTiling(app, options.tiling);
  defineFilters(app, options.filters);
}

void defineSplitOptions(CLI::App& app, SplitOptions& options) {
  defineInputs(app, options.inputs);
  defineColumns(app, options.columns);
  defineTiling(app, options.tiling);
  defineFilters(app, options.filters);
  defineOutput(app,
               "The bundle that links the tiles, a .f5 file; the tiles go into a\n"
               "folder of its name beside it",
               options.output);
  CLI::Option* single =
      app.add_flag("--single-file", options.singleFile,
                   "Put all tiles inside the output file itself, one after the other;\n"
                   "a run that was stopped leaves nothing")
          ->group(kOutputGroup);
  addText(app, {"--output-dir", "DIR", "Put the folder of tiles into DIR instead", kOutputGroup},
          options.outputDirectory);
  single->excludes("--output-dir");
  addText(app,
          {"--output-grid", "NAME", "Name of the output grid [that of the input]", kOutputGroup},
          options.outputGrid);
  defineKeepOrder(app, options.keepOrder);
  defineStorage(app, options.storage);
  defineForce(app, "Delete tiles of another plan, or an output file of other origin",
              options.force);
}

void defineLinkOptions(CLI::App& app, LinkOptions& options) {
  app.add_option("TILE", options.inputs, "Tile files, folders of them, or patterns in quotes")
      ->required()
      ->type_name("");
  defineOutput(app, "The bundle that links the tiles, a .f5 file", options.output);
  defineDurability(app, options.durable);
  defineForce(app, "Replace a file that exists", options.force);
}

void defineVerifyOptions(CLI::App& app, VerifyOptions& options) {
  app.add_option("FILE", options.inputs, "Bundle files, folders of them, or patterns in quotes")
      ->required()
      ->type_name("");
  app.add_flag("--quick", options.quick,
               "Look whether every tile is there and is the one that was linked;\n"
               "leave its points unread");
}

void defineShowOptions(CLI::App& app, ShowOptions& options) {
  defineInputs(app, options.inputs);
  app.add_flag("--all", options.allFragments, "List all tiles or fragments, not the first ones");
  app.add_flag("--ranges,--scan", options.computeRanges,
               "Read the points to find value ranges that the file does not tell");
}

void defineImportOptions(CLI::App& app, ImportOptions& options) {
  defineInputs(app, options.inputs);
  defineColumns(app, options.columns);
  defineOutput(app, "The bundle to write, a .f5 file", options.output);
  addText(app, {"--grid", "NAME", "Name of the cloud [points]", kOutputGroup}, options.grid);
  addParsed(app, {"--time", "T", "Time of the cloud [0]", kOutputGroup}, parseNumber,
            storeIn(options.time));
  defineKeepOrder(app, options.keepOrder);
  defineStorage(app, options.storage);
  defineForce(app, "Replace a file that exists", options.force);
}

void defineExportOptions(CLI::App& app, ExportOptions& options) {
  app.add_option("FILE", options.inputs, "The bundle, a .f5 file")->required()->type_name("");
  app.add_option("-o,--output", options.output,
                 "A .las, .laz, .xyz, .txt or .csv file (text also with .gz), or\n"
                 "a folder for one file per tile")
      ->required()
      ->type_name("OUT")
      ->group(kOutputGroup);
  addText(app,
          {"--name", "TEMPLATE",
           "Names of a folder's files, from {grid} {time} {i} {j} {k} {n}\n"
           "{xmin} {ymin} {zmin} [{grid}_{i}_{j}_{k}]",
           kOutputGroup},
          options.name);
  addChoice(
      app,
      {"--as", "TYPE", "Type of a folder's files: las, laz, xyz, txt or csv [laz]", kOutputGroup},
      {{"las", "las"}, {"laz", "laz"}, {"xyz", "xyz"}, {"txt", "txt"}, {"csv", "csv"}},
      options.fileType);
  addChoice(app,
            {"--files", "KIND",
             "tile: a folder gets one file per tile [tile]; source: one per\n"
             "imported file, in its order (needs --keep-order before)",
             kOutputGroup},
            {{"tile", FileDivision::Tile}, {"source", FileDivision::Source}}, options.division);
  addChoice(app,
            {"--overlap", "RULE",
             "Points in the margins of tiles. drop: each once, in the tile\n"
             "that owns it [drop]; keep: as they stand; flag: kept and marked\n"
             "as overlap",
             kPointFileGroup},
            {{"drop", OverlapRule::Drop}, {"keep", OverlapRule::Keep}, {"flag", OverlapRule::Flag}},
            options.overlap);
  addParsed(
      app, {"--format", "N", "Point format, 0 to 10 [that of the imported files]", kPointFileGroup},
      countParser(0, 10), [&options](std::uint64_t format) {
        options.pointFormat = static_cast<std::uint8_t>(format);
      });
  addList(app, {"--scale", "S[,Y,Z]", "Steps of the coordinates [likewise]", kPointFileGroup},
          parseScale, storeIn(options.scale));
  addList(app, {"--offset", "X,Y,Z", "Offsets of the coordinates [likewise]", kPointFileGroup},
          parsePoint, storeIn(options.offset));
  app.add_flag("--lossy", options.lossy, "Round and leave out what the files cannot hold exactly")
      ->group(kPointFileGroup);
  addChoice(app,
            {"--waveforms", "PLACE",
             "external: in a .wdp file beside [external]; internal: in the\n"
             "file itself; none: leave them out",
             kPointFileGroup},
            {{"external", WaveformChoice::External},
             {"internal", WaveformChoice::Internal},
             {"none", WaveformChoice::None}},
            options.waveforms);
  defineFilters(app, options.filters);
  defineDurability(app, options.durable);
  defineForce(app, "Replace files that exist", options.force);
}

void defineSynthOptions(CLI::App& app, SynthOptions& options) {
  Synth::SurveyOptions& survey = options.survey;
  constexpr auto kMost32 = std::numeric_limits<std::uint32_t>::max();
  defineOutput(app, "The file to write; .laz compresses", options.output);
  defineForce(app, "Replace a file that exists", options.force);
  addParsed(app, {"--points", "N", "About so many points, such as 5M [5M]", kSurveyGroup},
            countParser<std::uint64_t>(1, Synth::kMostPoints), storeIn(survey.pointCount));
  addParsed(app, {"--seed", "N", "Another seed gives another survey [1]", kSurveyGroup},
            countParser<std::uint64_t>(0, std::numeric_limits<std::uint64_t>::max()),
            storeIn(survey.seed));
  addParsed(app, {"--lines", "N", "Flight lines, overlapping by 30 % [2]", kSurveyGroup},
            countParser<std::uint32_t>(1, kMost32), storeCount(survey.flightLines));
  addParsed(app, {"--density", "D", "Pulses per square metre and line [8]", kSurveyGroup},
            parseNumber, storeIn(survey.pulsesPerSquareMetre));
  addParsed(app, {"--noise", "M", "Deviation of the distances, in metres [0.015]", kSurveyGroup},
            parseNumber, storeIn(survey.rangeNoiseMetres));
  addParsed(app, {"--samples", "N", "Samples of the shortest waveform [64]", kSurveyGroup},
            countParser<std::uint32_t>(1, kMost32), storeCount(survey.samplesPerPacket));
  app.add_flag_function(
         "--no-waveforms", [&survey](std::int64_t) { survey.hasWaveforms = false; }, "Points alone")
      ->group(kSurveyGroup);
}

}  // namespace Host
