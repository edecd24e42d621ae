#ifndef QUOREL_UTILS_ETC_UTSTREAMCOUNTER_H
#define QUOREL_UTILS_ETC_UTSTREAMCOUNTER_H

/// Adapters that pass bytes through and count them. They end when the wrapped stream ends; ending
/// one does not end the wrapped stream.

#include "utils/etc/utstream.h"

/// Counts what is read from any input.
class UTIStreamCounter final : public UTIStream {
  public:
    explicit UTIStreamCounter(UTIStream& istream) : _istream(istream) {}
    size_t do_get(a_byte* buf, size_t n) override;

    uint64 count() const { return _count; }

  private:
    UTIStream& _istream;
    uint64 _count = 0;
};

/// Counts what is read from a buffered input, without copying: the two share a span. The wrapped
/// stream learns what was read when the span is used up, at the end, or when this object goes, and
/// is not to be read meanwhile.
class UTBufferedIStreamCounter final : public UTBufferedIStream {
  public:
    explicit UTBufferedIStreamCounter(UTBufferedIStream& istream);
    ~UTBufferedIStreamCounter() override { give_back(); }
    void set_eof() override;
    void refill() override;

    uint64 count() const { return _count - unread(); }

  private:
    void share_span();
    void give_back();

    UTBufferedIStream& _istream;
    uint64 _count = 0;  // all bytes of the spans so far
};

/// Counts what an output accepts.
class UTOStreamCounter final : public UTOStream {
  public:
    explicit UTOStreamCounter(UTOStream& dest) : _dest(dest) {}
    size_t do_put(const a_byte* data, size_t n) override;

    uint64 count() const { return _count; }

  private:
    UTOStream& _dest;
    uint64 _count = 0;
};

/// Counts what is written to a buffered output, without copying: the two share a span. The wrapped
/// stream learns what was written when the span is full, at the end, or when this object goes, and
/// is not to be written meanwhile.
class UTBufferedOStreamCounter final : public UTBufferedOStream {
  public:
    explicit UTBufferedOStreamCounter(UTBufferedOStream& dest);
    ~UTBufferedOStreamCounter() override { hand_over(); }
    void set_eof() override;
    void make_room() override;

    uint64 count() const { return _count - room(); }

  private:
    void share_span();
    void hand_over();

    UTBufferedOStream& _dest;
    uint64 _count = 0;  // the length of all spans so far
};

#endif
