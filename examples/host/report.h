// report.h: what the host tells the person who ran it, on standard output.
#pragma once

struct FrameStats_s;
struct Notes_s;
class ModuleWorld_c;
class Services_c;
class Survey_c;

void ReportServices(Services_c const & Services);
void ReportFiles(Survey_c const & Survey, Notes_s const & Notes);
void ReportTables(Survey_c const & Survey);
void ReportWorld(ModuleWorld_c const & World);
void ReportFrames(FrameStats_s const & Stats);

/// Live blocks and bytes, and the peak, of each category that was ever used.
void ReportMemory();

void ReportComplaints(Notes_s const & Notes);
