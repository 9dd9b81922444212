// SPDX-License-Identifier: MIT
#include "simcore/netLoader.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "simcore/pnmlLoader.h"
#include "simcore/sbmlLoader.h"

namespace quor {
namespace sim {

namespace {

// The local name of the document's root element ("sbml", "pnml"), or
// empty: what comes before it (a byte order mark, blanks, the XML
// declaration, comments, a document type) is skipped.
std::string RootElement(const std::string& p_sDocument) {
  std::size_t i = p_sDocument.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
  for (;;) {
    i = p_sDocument.find('<', i);
    if (i == std::string::npos) return std::string();
    if (p_sDocument.compare(i, 4, "<!--") == 0) {
      i = p_sDocument.find("-->", i);
      if (i == std::string::npos) return std::string();
      continue;
    }
    if (p_sDocument.compare(i, 2, "<?") == 0 || p_sDocument.compare(i, 2, "<!") == 0) {
      i = p_sDocument.find('>', i);
      if (i == std::string::npos) return std::string();
      continue;
    }
    const std::size_t l_nEnd = p_sDocument.find_first_of(" \t\r\n/>", i + 1);
    std::string l_sName = p_sDocument.substr(i + 1, l_nEnd == std::string::npos ? std::string::npos
                                                                                 : l_nEnd - i - 1);
    const std::size_t l_nColon = l_sName.rfind(':');
    return l_nColon == std::string::npos ? l_sName : l_sName.substr(l_nColon + 1);
  }
}

}  // namespace

bool ReadWholeFile(const std::string& p_sPath, std::string& p_rsText, std::string& p_rsError) {
  std::unique_ptr<std::FILE, int (*)(std::FILE*)> l_pFile(std::fopen(p_sPath.c_str(), "rb"),
                                                          &std::fclose);
  if (!l_pFile) {
    p_rsError = p_sPath + ": cannot open the file (" + std::strerror(errno) + ")";
    return false;
  }
  p_rsText.clear();
  char l_acBuffer[65536];
  for (;;) {
    std::size_t l_nRead = std::fread(l_acBuffer, 1, sizeof(l_acBuffer), l_pFile.get());
    p_rsText.append(l_acBuffer, l_nRead);
    if (l_nRead < sizeof(l_acBuffer)) break;
  }
  if (std::ferror(l_pFile.get())) {
    p_rsError = p_sPath + ": cannot read the file (" + std::strerror(errno) + ")";
    return false;
  }
  return true;
}

NetLoadResult LoadNetText(const std::string& p_sDocument, const std::string& p_sSourceName) {
  if (RootElement(p_sDocument) == "sbml") return LoadSbmlText(p_sDocument, p_sSourceName);
  return LoadPnmlText(p_sDocument, p_sSourceName);
}

NetLoadResult LoadFileWith(const std::string& p_sPath,
                           NetLoadResult (*p_fLoadText)(const std::string&, const std::string&)) {
  NetLoadResult l_cResult;
  std::string l_sDocument;
  if (!ReadWholeFile(p_sPath, l_sDocument, l_cResult.error)) return l_cResult;
  return p_fLoadText(l_sDocument, p_sPath);
}

NetLoadResult LoadNetFile(const std::string& p_sPath) { return LoadFileWith(p_sPath, LoadNetText); }

std::string LoadError(const std::string& p_sSource, long p_nLine, const std::string& p_sProblem) {
  if (p_nLine <= 0) return p_sSource + ": " + p_sProblem;
  return p_sSource + ": line " + std::to_string(p_nLine) + ": " + p_sProblem;
}

}  // namespace sim
}  // namespace quor
