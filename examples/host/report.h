// report.h: the report on standard output for the person who ran the host. The settings choose its parts.
#pragma once

struct FrameStats_s;
struct Notes_s;
struct SaveResult_s;
class ModuleWorld_c;
class Services_c;
class Survey_c;

/// Starts a part with its title. Returns false if the settings leave the part out.
bool ReportBegin(char const * szPart, char const * szTitle);

void ReportServices(Services_c const & Services);

/// Reports the files. szSource describes where the tables of files came from. Filling them took tTables seconds.
void ReportFiles(Survey_c const & Survey, char const * szSource, double tTables, Notes_s const & Notes);

void ReportTables(Survey_c const & Survey);

/// Report what was loaded, or why nothing was; the world and the frames; and what was saved. ReportLoad reports a save
/// that was set aside, or replaced by a previous one, even if the settings leave the part out.
void ReportLoad(SaveResult_s const & Result, ModuleWorld_c const & World);
void ReportNotLoaded(char const * szWhy);
void ReportWorld(ModuleWorld_c const & World);
void ReportFrames(FrameStats_s const & Stats);
void ReportSave(SaveResult_s const & Result, ModuleWorld_c const & World);

/// Reports the live blocks and bytes, and the peak, of each category that was ever used.
void ReportMemory();

void ReportComplaints(Notes_s const & Notes);
