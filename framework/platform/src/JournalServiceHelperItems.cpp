// JournalServiceHelper: item bodies of the five entry types and the parsing of entry lists.
//
// The five types share one codec. Each field is named once, in a visit function that a Writer
// (item -> XML text) and a Reader (XML -> item) both walk; the differences between the types are
// which field groups they have, decided from their base classes.
//
// Lists of a thousand entries of ten occurrences travel at start-up and on every client read, so
// the writer appends straight to a string and leaves out fields at their default (empty text, 0,
// false: what a reader assumes for a missing field), and the reader expects the fields in the
// order they are written.
#include <charconv>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <utility>

#include "framework/JournalServiceHelper.h"
#include "framework/JournalServiceHelperXml.h"

namespace journalxml {
namespace {

using H = JournalServiceHelper;

template <class Item>
struct ItemTraits;
template <>
struct ItemTraits<MissedCallItem> {
  static constexpr const char* root = H::MISSEDCALL;
};
template <>
struct ItemTraits<ReceivedCallItem> {
  static constexpr const char* root = H::RECEIVEDCALL;
};
template <>
struct ItemTraits<DialledCallItem> {
  static constexpr const char* root = H::DIALLEDCALL;
};
template <>
struct ItemTraits<ForwardedCallItem> {
  static constexpr const char* root = H::FORWARDEDCALL;
};
template <>
struct ItemTraits<CallBackItem> {
  static constexpr const char* root = H::CALLBACK;
};

template <class T>
constexpr bool hasPicture = std::is_base_of_v<CallItemWithPicture, T>;

// Item -> XML text: appends one element per visited value that is not at its default, or, for
// the occurrences (`attributes`), one attribute.
struct Writer {
  std::string& out;
  bool attributes = false;

  void field(const char* name, const char* value, size_t size) { appendField(out, name, value, size, attributes); }
  void operator()(const char* name, const std::string& value) {
    if (!value.empty()) field(name, value.data(), value.size());
  }
  void operator()(const char* name, const CompactString& value) {
    if (!value.empty()) field(name, value.data(), value.size());
  }
  void operator()(const char* name, bool value) {
    if (value) field(name, H::TRUETEXT, std::strlen(H::TRUETEXT));
  }
  void operator()(const char* name, int64_t value) {
    if (value == 0) return;
    char digits[24];
    const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
    field(name, digits, static_cast<size_t>(end - digits));
  }
  template <class E, std::enable_if_t<std::is_enum_v<E>, int> = 0>
  void operator()(const char* name, E value) {
    if (value == E{}) return;
    char digits[16];
    const auto end = std::to_chars(digits, digits + sizeof digits, static_cast<long>(value)).ptr;
    field(name, digits, static_cast<size_t>(end - digits));
  }
  // A field behind an accessor pair.
  template <class Obj, class Get, class Set>
  void prop(const char* name, const Obj& obj, Get get, Set /*set*/) {
    (*this)(name, (obj.*get)());
  }
  void open(const char* name) {
    out += '<';
    out += name;
    out += '>';
  }
  void close(const char* name) {
    out += "</";
    out += name;
    out += '>';
  }
};

// The highest value of each enumeration an item carries (each starts at 0). A number outside
// 0..highest names no value: casting it into the enumeration would be undefined.
constexpr long highest(NumberType::NT) { return NumberType::NT_OTHER; }
constexpr long highest(CallLogEntryEvent::_LogTarget) { return CallLogEntryEvent::LT_DIALLED_OTHER; }
constexpr long highest(CallLogEntryEvent::_PresentationValue) { return CallLogEntryEvent::PV_RESTRICTED; }
constexpr long highest(CallLogEntryEvent::_TFormat) { return CallLogEntryEvent::TF_UTC; }
constexpr long highest(CallBackItem::CallBackType) { return CallBackItem::CBT_ON_NO_REPLY; }
constexpr long highest(CallBackItem::CallBackState) { return CallBackItem::CBS_READY; }

// Field names compared without a call: most differ in their first byte.
inline bool sameName(const char* a, const char* b) {
  while (*a == *b) {
    if (*a == '\0') return true;
    ++a;
    ++b;
  }
  return false;
}

// A field of an element: a child element, or an attribute for the occurrences. `text` is null for
// a field that is not there.
struct Field {
  const char* text = nullptr;
  explicit operator bool() const { return text != nullptr; }
};

// XML -> item: reads every visited value; `ok` turns false at the first malformed field.
struct Reader {
  // The fields of `n` (its child elements, or its attributes), gathered once: every field is then
  // looked for in this small array rather than through the document.
  explicit Reader(const pugi::xml_node& n, bool fromAttributes = false) {
    if (fromAttributes) {
      for (pugi::xml_attribute a = n.first_attribute(); a && count < kMaxFields; a = a.next_attribute())
        fields[count++] = {a.name(), a.value(), nullptr, nullptr};
    } else {
      for (pugi::xml_node c = n.first_child(); c && count < kMaxFields; c = c.next_sibling())
        fields[count++] = {c.name(), c.text().get(), c.internal_object(), nullptr};
    }
  }
  // The same from a scanned body: its root's fields, or the attributes of one occurrence.
  explicit Reader(const ItemScan& scanned) : scan(&scanned) {
    for (const ItemScan::Field& field : scanned.fields()) {
      if (count == kMaxFields) break;
      fields[count++] = {field.name, field.text, nullptr, &field};
    }
  }
  Reader(const ItemScan& scanned, const ItemScan::Info& info) : scan(&scanned) {
    for (uint32_t i = info.first; i < info.first + info.count && count < kMaxFields; ++i) {
      const ItemScan::Field& attribute = scanned.attributes()[i];
      fields[count++] = {attribute.name, attribute.text, nullptr, &attribute};
    }
  }

  struct Entry {  // plain data: the array is not initialised, only the first `count` are set
    const char* name;
    const char* text;
    pugi::xml_node_struct* node;     // read from a document
    const ItemScan::Field* scanned;  // read from a scan
  };
  const ItemScan* scan = nullptr;           // the scan the fields come from, if any
  static constexpr size_t kMaxFields = 32;  // more than any item or occurrence has
  Entry fields[kMaxFields];
  size_t count = 0;
  size_t next = 0;  // where the following field is expected
  bool ok = true;

  // The field `name`, looked for from the expected place on: fields come in the order they are
  // written, and any of them may be left out.
  const Entry* entry(const char* name) {
    for (size_t i = next; i < count; ++i) {
      if (sameName(fields[i].name, name)) {
        next = i + 1;
        return &fields[i];
      }
    }
    return nullptr;
  }
  Field find(const char* name) {
    const Entry* found = entry(name);
    return found ? Field{found->text} : Field{};
  }
  pugi::xml_node child(const char* name) {
    const Entry* found = entry(name);
    return found ? pugi::xml_node(found->node) : pugi::xml_node();
  }
  void operator()(const char* name, std::string& value) {
    if (const Field field = find(name)) value = field.text;
  }
  void operator()(const char* name, CompactString& value) {
    if (const Field field = find(name)) value = field.text;
  }
  void operator()(const char* name, bool& value) {
    if (const Field field = find(name)) ok = readValue(field.text, value) && ok;
  }
  // A 64-bit number (the list order), plain decimal digits with an optional minus.
  void operator()(const char* name, int64_t& value) {
    const Field field = find(name);
    if (!field) return;
    const char* end = field.text + std::strlen(field.text);
    const auto parsed = std::from_chars(field.text, end, value);
    ok = ok && parsed.ec == std::errc() && parsed.ptr == end && parsed.ptr != field.text;
  }
  template <class E, std::enable_if_t<std::is_enum_v<E>, int> = 0>
  void operator()(const char* name, E& value) {
    const Field field = find(name);
    if (!field) return;
    long number = 0;
    if (readValue(field.text, number) && number >= 0 && number <= highest(E{})) {
      value = static_cast<E>(number);
    } else {
      ok = false;
    }
  }
  template <class Obj, class Get, class Set>
  void prop(const char* name, Obj& obj, Get get, Set set) {
    std::decay_t<decltype((obj.*get)())> value = (obj.*get)();
    (*this)(name, value);
    (obj.*set)(value);
  }
};

// Every field of one occurrence; `I` is an info type, const when writing.
template <class V, class I>
void visitInfo(V& v, I& info) {
  using Info = std::remove_const_t<I>;
  v(H::ENTRYID, info.entryId);
  v(H::NUMBER, info.number);
  v(H::CONNECTEDNUMBER, info.connectedNumber);
  v(H::CONNECTEDSURNAME, info.connectedSurname);
  v(H::CONNECTEDFIRSTNAME, info.connectedFirstname);
  v(H::TIMEDATE, info.timeDate);
  v(H::LOGTARGET, info.logTarget);
  v(H::NUMBERPRESENTATION, info.CallInfo::numberPresentation);
  v(H::NAMEPRESENTATION, info.CallInfo::namePresentation);
  v(H::NUMBERTYPE, info.numberType);
  v(H::CONNECTEDNUMBERTYPE, info.connectedNumberType);
  if constexpr (std::is_base_of_v<TimeFormat, Info>) v(H::TIMEFORMAT, info.timeFormat);
  if constexpr (std::is_base_of_v<Duration, Info>) v(H::DURATION, info.duration);
  if constexpr (std::is_base_of_v<Deflect, Info>) {
    v(H::DEFLECTNUMBER, info.deflectNumber);
    v(H::DEFLECTNAME, info.deflectName);
    v(H::DEFLECTNUMBERTYPE, info.deflectNumberType);
    v(H::DEFLECTNUMBERPRESENTATION, info.Deflect::numberPresentation);
    v(H::DEFLECTNAMEPRESENTATION, info.Deflect::namePresentation);
  }
  if constexpr (std::is_same_v<Info, MissedCallItem::MissedCallInfo>) {
    v(H::COMPLETEDELSEWHERE, info.completedElsewhere);
  }
  if constexpr (std::is_same_v<Info, DialledCallItem::DialledCallInfo>) {
    v(H::DIALLEDNUMBER, info.dialledNumber);
    v(H::ISFEATUREACCESSCODE, info.isFeatureAccessCode);
  }
}

// The fields that name a stored entry: all a delete body carries.
template <class V, class I>
void visitIdentity(V& v, I& item) {
  using Item = std::remove_const_t<I>;
  if constexpr (hasPicture<Item>) {
    v.prop(H::UNIQUEID, item, &CallItemWithPicture::getUniqueId, &CallItemWithPicture::setUniqueId);
  }
  v.prop(H::ENTRYID, item, &CallItem::getEntryId, &CallItem::setEntryId);
}

// The entry's own fields besides its identity and its occurrences.
template <class V, class I>
void visitFields(V& v, I& item) {
  using Item = std::remove_const_t<I>;
  v.prop(H::SURNAME, item, &CallItem::getSurname, &CallItem::setSurname);
  v.prop(H::FIRSTNAME, item, &CallItem::getFirstname, &CallItem::setFirstname);
  if constexpr (hasPicture<Item>) {
    v.prop(H::PICTURECLIP, item, &CallItemWithPicture::getPictureClip, &CallItemWithPicture::setPictureClip);
  }
  if constexpr (std::is_same_v<Item, MissedCallItem>) {
    v.prop(H::VIEWED, item, &MissedCallItem::getViewed, &MissedCallItem::setViewed);
  }
  if constexpr (std::is_same_v<Item, DialledCallItem>) {
    v.prop(H::GROUPBY, item, &DialledCallItem::getJournalSeviceGroupBy, &DialledCallItem::setJournalSeviceGroupBy);
  }
  if constexpr (hasPicture<Item>) {
    v.prop(H::LISTORDER, item, &CallItemWithPicture::getListOrder, &CallItemWithPicture::setListOrder);
  }
  if constexpr (std::is_same_v<Item, CallBackItem>) {
    v.prop(H::NUMBER, item, &CallBackItem::getNumber, &CallBackItem::setNumber);
    v.prop(H::NUMBERTYPE, item, &CallBackItem::getNumberType, &CallBackItem::setNumberType);
    v.prop(H::TIMEDATE, item, &CallBackItem::getTimeDate, &CallBackItem::setTimeDate);
    v.prop(H::CALLBACKTYPE, item, &CallBackItem::getCallBackType, &CallBackItem::setCallBackType);
    v.prop(H::CALLBACKSTATE, item, &CallBackItem::getCallBackState, &CallBackItem::setCallBackState);
    v.prop(H::DEVICEID, item, &CallBackItem::getDeviceId, &CallBackItem::setDeviceId);
  }
}

// Each occurrence is one empty element whose fields are attributes: a full list is mostly
// occurrences, and attributes make it smaller and quicker to read.
template <class Item>
void writeInfos(Writer& writer, const Item& item) {
  if (item.infos().empty()) return;
  writer.open(H::CALLINFOS);
  for (const auto& info : item.infos()) {
    writer.out += '<';
    writer.out += H::CALLINFO;
    Writer attributes{writer.out, true};
    visitInfo(attributes, info);
    writer.out += "/>";
  }
  writer.close(H::CALLINFOS);
}

template <class Item, class InfoReader>
bool readInfo(InfoReader&& infoReader, typename Item::InfoList& infos) {
  typename Item::InfoList::value_type info;
  visitInfo(infoReader, info);
  if (!infoReader.ok) return false;
  infos.push_back(std::move(info));
  return true;
}

template <class Item>
bool readInfos(Reader& reader, Item& item) {
  typename Item::InfoList infos;
  if (reader.scan) {
    const Reader::Entry* found = reader.entry(H::CALLINFOS);
    const ItemScan::Field* scanned = found ? found->scanned : nullptr;
    if (scanned) infos.reserve(scanned->count);  // thousands of entries are held for long: no spare slots
    for (uint32_t i = 0; scanned && i < scanned->count; ++i) {
      if (!readInfo<Item>(Reader{*reader.scan, reader.scan->infos()[scanned->first + i]}, infos)) return false;
    }
  } else {
    for (const pugi::xml_node& node : reader.child(H::CALLINFOS).children(H::CALLINFO)) {
      if (!readInfo<Item>(Reader{node, true}, infos)) return false;
    }
  }
  infos.shrink_to_fit();  // thousands of entries are held for long: no spare slots
  item.infos() = std::move(infos);
  return true;
}

}  // namespace

template <class Item>
void writeItem(std::string& out, const Item& item, bool isDelete) {
  Writer writer{out};
  writer.open(ItemTraits<Item>::root);
  visitIdentity(writer, item);
  if (!isDelete) {
    visitFields(writer, item);
    if constexpr (hasPicture<Item>) writeInfos(writer, item);
  }
  writer.close(ItemTraits<Item>::root);
}

template <class Item>
bool readFrom(Reader& reader, Item& item) {
  visitIdentity(reader, item);
  visitFields(reader, item);
  if constexpr (hasPicture<Item>) {
    if (!readInfos(reader, item)) return false;
  }
  return reader.ok;
}

template <class Item>
bool readItem(const pugi::xml_node& root, Item& item) {
  if (std::strcmp(root.name(), ItemTraits<Item>::root) != 0) return false;
  Reader reader{root};
  return readFrom(reader, item);
}

template <class Item>
bool readItem(const ItemScan& scan, Item& item) {
  if (!scan.rootName() || std::strcmp(scan.rootName(), ItemTraits<Item>::root) != 0) return false;
  Reader reader{scan};
  return readFrom(reader, item);
}

// An entry holds the item either as its element (replies) or as escaped text (store requests).
template <class Item>
bool readEntry(const pugi::xml_node& entry, Item& item) {
  const pugi::xml_node element =
      entry.find_child([](const pugi::xml_node& n) { return n.type() == pugi::node_element; });
  if (element) {
    if (!readItem(element, item)) return false;
  } else {
    pugi::xml_document body;
    if (!parse(body, entry.text().get()) || !readItem(body.document_element(), item)) return false;
  }
  // A store may give the row's unique id on the entry rather than inside the body.
  if constexpr (hasPicture<Item>) {
    const pugi::xml_attribute uniqueId = entry.attribute(H::UNIQUEID);
    if (uniqueId) item.setUniqueId(uniqueId.value());
  }
  return true;
}

#define JOURNALXML_INSTANTIATE(Item)                              \
  template void writeItem<Item>(std::string&, const Item&, bool); \
  template bool readItem<Item>(const pugi::xml_node&, Item&);     \
  template bool readItem<Item>(const ItemScan&, Item&);           \
  template bool readEntry<Item>(const pugi::xml_node&, Item&);
JOURNALXML_INSTANTIATE(MissedCallItem)
JOURNALXML_INSTANTIATE(ReceivedCallItem)
JOURNALXML_INSTANTIATE(DialledCallItem)
JOURNALXML_INSTANTIATE(ForwardedCallItem)
JOURNALXML_INSTANTIATE(CallBackItem)
#undef JOURNALXML_INSTANTIATE

}  // namespace journalxml

namespace {

using H = JournalServiceHelper;

template <class Item>
std::string bodyText(const Item& item, bool isDelete) {
  std::string body;
  journalxml::writeItem(body, item, isDelete);
  return body;
}

// The ENTRY field of a store request: the body as escaped text.
template <class Item>
void appendEntry(const Item& item, std::string& text, bool isDelete) {
  text += "<entry>";
  journalxml::appendEscaped(text, bodyText(item, isDelete));
  text += "</entry>";
}

template <class Item>
bool parseBody(const std::string& body, Item& item) {
  thread_local journalxml::ItemScan scan;
  if (scan.scan(body.data(), body.size())) return journalxml::readItem(scan, item);
  pugi::xml_document doc;
  return journalxml::parse(doc, body) && journalxml::readItem(doc.document_element(), item);
}

}  // namespace

std::string JournalServiceHelper::createXMLMissedCallItemBody(const MissedCallItem& item, bool isDelete) {
  return bodyText(item, isDelete);
}
std::string JournalServiceHelper::createXMLReceivedCallItemBody(const ReceivedCallItem& item, bool isDelete) {
  return bodyText(item, isDelete);
}
std::string JournalServiceHelper::createXMLDialledCallItemBody(const DialledCallItem& item, bool isDelete) {
  return bodyText(item, isDelete);
}
std::string JournalServiceHelper::createXMLForwardedCallItemBody(const ForwardedCallItem& item, bool isDelete) {
  return bodyText(item, isDelete);
}
std::string JournalServiceHelper::createXMLCallBackItemBody(const CallBackItem& item, bool isDelete) {
  return bodyText(item, isDelete);
}

void JournalServiceHelper::createXMLMissedCallItemBody(const MissedCallItem& item, std::string& text, bool isDelete) {
  appendEntry(item, text, isDelete);
}
void JournalServiceHelper::createXMLReceivedCallItemBody(const ReceivedCallItem& item, std::string& text,
                                                         bool isDelete) {
  appendEntry(item, text, isDelete);
}
void JournalServiceHelper::createXMLDialledCallItemBody(const DialledCallItem& item, std::string& text, bool isDelete) {
  appendEntry(item, text, isDelete);
}
void JournalServiceHelper::createXMLForwardedCallItemBody(const ForwardedCallItem& item, std::string& text,
                                                          bool isDelete) {
  appendEntry(item, text, isDelete);
}
void JournalServiceHelper::createXMLCallBackItemBody(const CallBackItem& item, std::string& text, bool isDelete) {
  appendEntry(item, text, isDelete);
}

bool JournalServiceHelper::parseXMLItemBody(const std::string& body, MissedCallItem& item) {
  return parseBody(body, item);
}
bool JournalServiceHelper::parseXMLItemBody(const std::string& body, ReceivedCallItem& item) {
  return parseBody(body, item);
}
bool JournalServiceHelper::parseXMLItemBody(const std::string& body, DialledCallItem& item) {
  return parseBody(body, item);
}
bool JournalServiceHelper::parseXMLItemBody(const std::string& body, ForwardedCallItem& item) {
  return parseBody(body, item);
}
bool JournalServiceHelper::parseXMLItemBody(const std::string& body, CallBackItem& item) {
  return parseBody(body, item);
}
