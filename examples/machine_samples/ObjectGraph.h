// A graph of objects of two classes through an archive: two arms that share one tool, and an
// empty place.

#ifndef MACHINE_SAMPLES_OBJECTGRAPH_H_
#define MACHINE_SAMPLES_OBJECTGRAPH_H_

#include <string>

/// Writes the graph to graph.tnr in a directory. @return success.
bool SaveGraph(const std::string& strDirectory);

/// Reads graph.tnr back, prints it and compares it with what was written.
bool CheckGraph(const std::string& strDirectory);

#endif  // MACHINE_SAMPLES_OBJECTGRAPH_H_
