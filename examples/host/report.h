// report.h: the report on standard output for the person who ran the host. The settings choose its parts.
#pragma once

struct FrameStats_t;
struct Notes_s;
struct SaveResult_t;
class ModuleWorld_c;
class Services_c;
class Survey_c;

/// Starts a part with its title and returns true. If the settings leave the part out, returns false and prints nothing.
bool ReportBegin(char const * szPart, char const * szTitle);

/// Reports the services in the order of their start, each with the time that its start took.
void ReportServices(Services_c const & Services);

/// Reports the files. szSource describes where the tables of files came from. Filling them took tTables seconds.
void ReportFiles(Survey_c const & Survey, char const * szSource, double tTables, Notes_s const & Notes);

/// Reports the numbers of tables and rows, the time to walk them, and the numbers of rows of the first tables.
void ReportTables(Survey_c const & Survey);

/// Report what was loaded, why nothing was loaded, the world, the frames, and what was saved. ReportLoad reports that a
/// save was put aside, or that a previous one was loaded, even if the settings leave the part out. ReportSave reports
/// nothing if the save failed.
void ReportLoad(SaveResult_t const & Result, ModuleWorld_c const & World);
void ReportNotLoaded(char const * szWhy);
void ReportWorld(ModuleWorld_c const & World);
void ReportFrames(FrameStats_t const & Stats);
void ReportSave(SaveResult_t const & Result, ModuleWorld_c const & World);

/// Reports the live blocks and bytes, and the peak, of each category that was ever used, and of all together.
void ReportMemory();

/// Reports the number of warnings and achtungs, and the first few of them.
void ReportComplaints(Notes_s const & Notes);
