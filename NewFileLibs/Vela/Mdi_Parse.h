// The MIDI input byte parser, in three layers:
//  - Mdi_Parse: a byte-at-a-time state machine (running status, real-time bytes anywhere,
//    system-exclusive accumulation, system common messages) that hands every completed
//    message to one of fourteen virtual handlers. The base handlers do nothing.
//  - Mdi_ParseToEventReceiver: builds Vela_Event values from channel voice messages and
//    passes them to an Mdie_EventReceiver; everything else is recognised and ignored.
//  - Mdi_ParseSingleEvent: parses a buffer up to the first completed message.
//
// Input may arrive in arbitrary slices: the state carries over from one MidiStream call to
// the next, so a stream fed whole, byte by byte or in random slices yields the same messages.
// Malformed input is never reported: stray data bytes, messages interrupted by a status byte,
// over-long sysex and the undefined F4/F5 are dropped.
//
// Threads: one thread at a time per parser; no locks.
// Real time: MidiStream does constant work per byte and never allocates (a sysex longer than
// the fixed buffer is dropped rather than grown), so it may run on the input thread.
// Ownership: the event receiver is not owned.
#pragma once

#include <cstdint>

#include "Mdie_EventReceiver.h"
#include "Vela_Event.h"

class Mdi_Parse {
public:
    // A sysex of at most this many bytes before the F7 (F0 included) is delivered; the
    // buffer holds one more byte for the F7 itself.
    static constexpr int kMaxSysexBeforeEnd = 256;
    static constexpr int kBufferSize = kMaxSysexBeforeEnd + 1;

    // No running status, nothing assembled, note-on velocity 0 delivered as note-off 64.
    Mdi_Parse();
    Mdi_Parse(const Mdi_Parse& iOther) = default;
    Mdi_Parse& operator=(const Mdi_Parse& iOther) = default;
    virtual ~Mdi_Parse();

    // Feeds iLength bytes. Returns what the last handler called during this call returned;
    // false when no handler was called (or iLength < 1).
    bool MidiStream(const unsigned char* iBytes, short iLength);

    // Both forget the running status and drop a partly assembled message; call them when the
    // stream is interrupted (port reopened, transport jump).
    void ClearRunningStatus();
    void Reset();

    // The channel (0..15) of the running status, or -1 when there is none. Handlers of
    // channel voice messages use it to learn the channel of the message being delivered.
    short GetChannel() const { return mRunningStatus == 0 ? -1 : static_cast<short>(mRunningStatus & 0x0F); }

    // When set (the default), a note-on with velocity 0 reaches ParseNoteOff as
    // (8n, pitch, 64).
    bool GetConvertNoteOnZero() const { return mConvertNoteOnZero; }
    void SetConvertNoteOnZero(bool iConvert) { mConvertNoteOnZero = iConvert; }

protected:
    // Each handler gets the assembled message, status byte first, and its return value
    // becomes MidiStream's. Message lengths: real time 1 (a pointer into the caller's input),
    // sysex F0..F7 whole, note off/on, poly pressure, controller, channel mode, pitch bend and
    // song pointer 3; program change, channel pressure, timecode and song select 2; tune
    // request 1. Channel mode is a 0xBn message with controller number 120 or more.
    virtual bool ParseRealTime(const unsigned char* iMessage);
    virtual bool ParseSysEx(const unsigned char* iMessage, short iLength);
    virtual bool ParseNoteOff(const unsigned char* iMessage);
    virtual bool ParseNoteOn(const unsigned char* iMessage);
    virtual bool ParsePolyphonic(const unsigned char* iMessage);
    virtual bool ParseChannelMode(const unsigned char* iMessage);
    virtual bool ParseController(const unsigned char* iMessage);
    virtual bool ParseProgramChange(const unsigned char* iMessage);
    virtual bool ParseChannelPressure(const unsigned char* iMessage);
    virtual bool ParsePitchBend(const unsigned char* iMessage);
    virtual bool ParseTimecode(const unsigned char* iMessage);
    virtual bool ParseSongPointer(const unsigned char* iMessage);
    virtual bool ParseSongSelect(const unsigned char* iMessage);
    virtual bool ParseTuneRequest(const unsigned char* iMessage);

private:
    // The byte loop, shared by every parser; iWholeMessage handles a channel voice message
    // framed in one step between messages (see Mdi_Parse.cpp).
    template <class FWholeMessage>
    bool StreamWith(const unsigned char* iBytes, short iLength, const FWholeMessage& iWholeMessage);
    int ConsumeByte(const unsigned char* iByteP, int iCount, bool& ioResult);
    // Routes the complete message in mBuffer (mCount bytes) to its handler.
    bool DispatchMessage();
    bool DispatchNoteOn();

    uint8_t mRunningStatus;  // last channel status 0x80..0xEF, 0 when none
    int16_t mCount;          // bytes assembled in mBuffer
    bool mConvertNoteOnZero;
    unsigned char mBuffer[kBufferSize];  // byte 0 is the status of the message being assembled
};

// Delivers channel voice messages as events: note off/on, poly pressure, controller, program
// (program enabled, both bank halves disabled), channel pressure and pitch bend (centred on
// 0). The channel is not in the event: the receiver asks GetChannel() while handling it.
// Every handler returns true, ignored messages included, so a caller feeding one byte at a
// time learns where each message ends.
// An object of exactly this class (not of a subclass, which may override handlers) builds
// the events of whole channel messages without going through the virtual handlers; the
// events, their order and GetChannel() during delivery are the same either way.
class Mdi_ParseToEventReceiver : public Mdi_Parse {
public:
    Mdi_ParseToEventReceiver();

    // Not owned; null (the default) makes the parser deliver nothing.
    void SetEventReceiver(Mdie_EventReceiver* iReceiverP) { mReceiverP = iReceiverP; }
    Mdie_EventReceiver* GetEventReceiver() const { return mReceiverP; }

protected:
    bool ParseRealTime(const unsigned char* iMessage) override;
    bool ParseSysEx(const unsigned char* iMessage, short iLength) override;
    bool ParseNoteOff(const unsigned char* iMessage) override;
    bool ParseNoteOn(const unsigned char* iMessage) override;
    bool ParsePolyphonic(const unsigned char* iMessage) override;
    bool ParseChannelMode(const unsigned char* iMessage) override;
    bool ParseController(const unsigned char* iMessage) override;
    bool ParseProgramChange(const unsigned char* iMessage) override;
    bool ParseChannelPressure(const unsigned char* iMessage) override;
    bool ParsePitchBend(const unsigned char* iMessage) override;
    bool ParseTimecode(const unsigned char* iMessage) override;
    bool ParseSongPointer(const unsigned char* iMessage) override;
    bool ParseSongSelect(const unsigned char* iMessage) override;
    bool ParseTuneRequest(const unsigned char* iMessage) override;

private:
    // Delivers the event of a channel voice message of kind iKind (its high nibble).
    bool Deliver(unsigned iKind, const unsigned char* iMessage);

    Mdie_EventReceiver* mReceiverP;
};

// Parses data up to the end of the first message (or length bytes) and returns its event;
// the null event when that message is one the event parser ignores (real time, sysex,
// system common, channel mode). *oBytesUsed gets the bytes consumed, *oChannel the channel of
// the delivered event or -1 when none was delivered; either pointer may be null.
Vela_Event Mdi_ParseSingleEvent(signed char* oChannel, int* oBytesUsed, const void* iData, int iLength);
