// SPDX-License-Identifier: Apache-2.0

#include "host/HelpTexts.hpp"

namespace Host {

#define REFRAGMENT_COMMANDS                                                       \
  "  info    INPUT...              what a split would produce; writes nothing\n"  \
  "  split   INPUT... -o OUT.f5    cut a cloud into tiles, one file each\n"       \
  "  link    TILE... -o OUT.f5     a bundle over tile files there are\n"          \
  "  show    FILE...               what a file holds\n"                           \
  "  verify  FILE...               whether every tile is there and as promised\n" \
  "  import  INPUT... -o OUT.f5    a bundle file from files of points\n"          \
  "  export  FILE.f5 -o OUT        LAS, LAZ or text files from a bundle\n"        \
  "  synth   -o OUT.las            a made-up survey to try things with\n"

const char* const kShortHelp =
    "refragment re-cuts laser-scanning point clouds into regular tiles.\n"
    "\n" REFRAGMENT_COMMANDS
    "\n"
    "Try:\n"
    "  refragment synth -o town.las --points 2M\n"
    "  refragment split town.las -o town.f5 --fragment-length 50\n"
    "  refragment show town.f5\n"
    "\n"
    "More: refragment --help, refragment split --help\n";

const char* const kLongHelp =
    "refragment re-cuts laser-scanning point clouds into regular tiles.\n"
    "\n"
    "Usage: refragment COMMAND ...\n"
    "\n" REFRAGMENT_COMMANDS
    "\n"
    "Each command explains itself: refragment COMMAND --help\n"
    "\n"
    "INPUT is a .las, .laz, .xyz, .txt, .csv or .f5 file, a folder of such files, or a\n"
    "pattern in quotes (\"flight/*.laz\"). Several files of points are one cloud.\n"
    "\n"
    "Results go to standard output, everything else to standard error.\n"
    "\n"
    "Exit status:\n"
    "    0  done\n"
    "    1  failed: nothing usable was made\n"
    "    2  usage: the command line makes no sense, nothing was touched\n"
    "    3  done, but point totals do not add up, or a file is not as promised\n"
    "    4  some tiles failed; the same command again goes on with them\n"
    "  130  cancelled (Ctrl-C); the same command again goes on where it stopped\n"
    "\n"
    "Flags may come from a file: refragment split scan.laz -o scan.f5 --config tiles.toml\n"
    "with lines such as\n"
    "  fragment-length = [100, 100, 0]\n"
    "  overlap = 0.1\n";

#undef REFRAGMENT_COMMANDS

const CommandHelp kInfoHelp = {
    "info", "Says what a split would produce: box, tile lengths, number of tiles. Writes nothing.",
    "info INPUT... [flags]",
    "Examples:\n"
    "  refragment info scan.laz                          lengths from the point density\n"
    "  refragment info scan.laz --fragment-length 100    tiles of 100 x 100\n"
    "  refragment info \"flight/*.laz\" --points-per-tile 2M\n"
    "  refragment info scan.laz --start 0,0,-10 --end 500,500,90\n"
    "  refragment info scan.laz --json | jq '.grids[0].tiles'"};

const CommandHelp kSplitHelp = {
    "split", "Cuts a cloud into regular tiles: one file per tile, and a bundle that links them.",
    "split INPUT... -o OUT.f5 [flags]",
    "Tiles that are there already are kept, so a run that was stopped goes on when the same\n"
    "command is given again.\n"
    "\n"
    "Examples:\n"
    "  refragment split scan.laz -o scan.f5              about five million points per tile\n"
    "  refragment split scan.laz -o scan.f5 --fragment-length 100\n"
    "  refragment split scan.laz -o scan.f5 --fragment-length 100,100,20 --overlap 0.1\n"
    "  refragment split \"flight/*.laz\" -o all.f5 --points-per-tile 2M --min-points 100\n"
    "  refragment split scan.laz -o part.f5 --start -50,-50,0 --end 50,50,100\n"
    "  refragment split scan.laz -o small.f5 --field Intensity --field Classification\n"
    "  refragment split scan.laz -o one.f5 --single-file  all tiles inside one file\n"
    "\n"
    "Exit status: 0 done, 1 failed, 2 usage, 3 point totals differ, 4 some tiles failed,\n"
    "130 cancelled."};

const CommandHelp kLinkHelp = {
    "link", "Links tile files that were written earlier into one bundle, without reading points.",
    "link TILE... -o OUT.f5 [flags]",
    "The name of each file tells its place in the tiling: F2x0x1T0.000000Gscan.f5 is tile\n"
    "2, 0, 1. All must come from the same tiling and have the same fields.\n"
    "\n"
    "Examples:\n"
    "  refragment link scan -o scan.f5                   all tiles of a folder\n"
    "  refragment link \"scan/F*x0x0T*.f5\" -o row.f5     one row of them\n"
    "  refragment link day1 day2 -o both.f5"};

const CommandHelp kShowHelp = {
    "show", "Shows what files hold: times, grids, fields with type and range, tiles.",
    "show FILE... [flags]",
    "Examples:\n"
    "  refragment show scan.f5                           grids, fields and the first tiles\n"
    "  refragment show scan.f5 --all                     every tile\n"
    "  refragment show scan.laz --ranges                 value ranges, by reading the points\n"
    "  refragment show scan.f5 --json | jq '.slices[0].grids[0].points'"};

const CommandHelp kVerifyHelp = {
    "verify", "Checks that every tile of a bundle is there, readable, and holds what was promised.",
    "verify FILE... [flags]",
    "Examples:\n"
    "  refragment verify scan.f5                         reads every point\n"
    "  refragment verify scan.f5 --quick                 the files alone\n"
    "  refragment verify scan.f5 --json | jq '.problems'\n"
    "\n"
    "Exit status: 0 all is as promised, 3 something is not, 1 a file is no bundle."};

const CommandHelp kImportHelp = {
    "import",
    "Writes a bundle file with the points of LAS, LAZ or text files, without cutting them.",
    "import INPUT... -o OUT.f5 [flags]",
    "Examples:\n"
    "  refragment import scan.laz -o scan.f5\n"
    "  refragment import depths.txt -o depths.f5 --columns x,y,z,Uncertainty,-\n"
    "  refragment import \"flight/*.laz\" -o flight.f5 --grid flight --time 2024.5"};

const CommandHelp kExportHelp = {
    "export",
    "Writes the points of a bundle as LAS, LAZ or text: one file, or a folder with one per tile.",
    "export FILE.f5 -o OUT [flags]",
    "OUT is one file when it ends in .las, .laz, .xyz, .txt or .csv, and a folder otherwise. What\n"
    "the points' own LAS files said (format, scale, coordinate system, extra bytes, waveforms)\n"
    "comes back.\n"
    "\n"
    "Examples:\n"
    "  refragment export town.f5 -o town.laz             all points in one file\n"
    "  refragment export town.f5 -o tiles                a folder, one .laz per tile\n"
    "  refragment export town.f5 -o tiles --as las --name '{grid}_{xmin}_{ymin}'\n"
    "  refragment export town.f5 -o tiles --overlap flag keep the margins, marked\n"
    "  refragment export town.f5 -o town.csv.gz --field Intensity\n"
    "  refragment export town.f5 -o back --files source  the files that were imported\n"
    "                                                    (with --keep-order)\n"
    "\n"
    "Exit status: 0 done, 1 failed, 2 usage, 4 some files failed, 130 cancelled."};

const CommandHelp kSynthHelp = {
    "synth",
    "Writes a made-up airborne survey: terrain, buildings, trees, flight lines, waveforms.",
    "synth -o OUT.las|OUT.laz [flags]",
    "The same flags always give the same bytes.\n"
    "\n"
    "Examples:\n"
    "  refragment synth -o town.las                      five million points\n"
    "  refragment synth -o tiny.las --points 10k --no-waveforms\n"
    "  refragment synth -o big.laz --points 200M --lines 8 --seed 7"};

}  // namespace Host
