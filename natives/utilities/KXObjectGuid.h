#ifndef KX_OBJECT_GUID_H
#define KX_OBJECT_GUID_H

#include <string>

#include "KXExport.h"

// An identifier text, such as the content identifier of a stream. Subclasses choose the digest
// text form through GetFormat().
class KX_EXPORT KXObjectGuid {
 public:
  KXObjectGuid() = default;
  KXObjectGuid(const KXObjectGuid&) = default;
  KXObjectGuid& operator=(const KXObjectGuid&) = default;

  virtual char GetFormat() const;
  virtual ~KXObjectGuid();

  // A null text clears the identifier.
  void SetID(const char* text);
  const char* GetID() const;

 protected:
  std::string mID;
};

#endif
