// Records what an entity publishes: its own changes and, through recursive
// publication, those of the members of its collections.
#pragma once

#include <vector>

#include "Pondo/Publisher.h"

class ChangeRecorder final : public Pondo::Subscriber {
  public:
   struct Entry {
      const Pondo::Publisher* source;
      Pondo::FieldId field;
      Pondo::Change::Kind kind;
      friend bool operator==(const Entry&, const Entry&) = default;
   };

   explicit ChangeRecorder(Pondo::Ptr<const Pondo::Publisher> p) : publisher_(std::move(p)) {
      publisher_->subscriberAdd(this);
   }
   ~ChangeRecorder() { publisher_->subscriberRemove(this); }
   ChangeRecorder(const ChangeRecorder&) = delete;
   ChangeRecorder& operator=(const ChangeRecorder&) = delete;

   void onChange(const Pondo::Change& c) override { entries.push_back({c.source, c.field, c.kind}); }
   // The fields of the changes published by `source`, in order.
   std::vector<Pondo::FieldId> fieldsOf(const Pondo::Publisher* source) const {
      std::vector<Pondo::FieldId> f;
      for (const Entry& e : entries) {
         if (e.source == source) f.push_back(e.field);
      }
      return f;
   }

   std::vector<Entry> entries;

  private:
   Pondo::Ptr<const Pondo::Publisher> publisher_;
};
