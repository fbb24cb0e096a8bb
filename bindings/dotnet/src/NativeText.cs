// Texts between .NET strings and the library's NUL-terminated bytes. The controllers speak ASCII;
// the binding maps one byte to one character (Latin-1) both ways, so that whatever bytes a
// controller sends come back unchanged in the string and go out again as they were. A character
// above U+00FF has no byte and is refused before any call.

using System;
using System.Runtime.InteropServices;

namespace Zanth
{
    public static class NativeText
    {
        /// <summary>The index of the first character that has no Latin-1 byte, or -1.</summary>
        public static int FirstWide(string text)
        {
            for (int i = 0; i < text.Length; i++)
            {
                if (text[i] > '\u00ff') return i;
            }
            return -1;
        }

        /// <summary>The text's bytes and a NUL, in a buffer of at least `capacity` bytes (the rest
        /// zero). The caller has checked that every character has its byte.</summary>
        public static byte[] In(string text, int capacity = 0)
        {
            var buffer = new byte[Math.Max(capacity, text.Length + 1)];
            for (int i = 0; i < text.Length; i++) buffer[i] = (byte)text[i];
            return buffer;
        }

        /// <summary>A zeroed output buffer: `size` bytes for the library and one more that stays
        /// zero, so that a text the library fills to its size still ends.</summary>
        public static byte[] Out(int size)
        {
            return new byte[size + 1];
        }

        /// <summary>The text in `buffer` up to its first NUL.</summary>
        public static string Read(byte[] buffer)
        {
            int n = Array.IndexOf(buffer, (byte)0);
            return Decode(buffer, 0, n < 0 ? buffer.Length : n);
        }

        public static string Decode(byte[] bytes, int offset, int count)
        {
            var chars = new char[count];
            for (int i = 0; i < count; i++) chars[i] = (char)bytes[offset + i];
            return new string(chars);
        }

        /// <summary>The length of a reply frame "CCCC;LLLL;payload" by its length field, within
        /// `max` bytes; 0 when the header is not a frame's.</summary>
        public static int FrameLength(byte[] frame, int max)
        {
            max = Math.Min(max, frame.Length);
            if (max < 10 || frame[4] != ';' || frame[9] != ';') return 0;
            int length = 0;
            for (int i = 5; i < 9; i++)
            {
                if (frame[i] < '0' || frame[i] > '9') return 0;
                length = length * 10 + (frame[i] - '0');
            }
            return Math.Min(Math.Max(length, 10), max);
        }

        /// <summary>The reply frame in an output buffer, measured by its length field (it may hold
        /// bytes after a NUL).</summary>
        public static string Frame(byte[] buffer)
        {
            return Decode(buffer, 0, FrameLength(buffer, buffer.Length - 1));
        }

        /// <summary>The first `count` bytes of an output chunk, within its buffer.</summary>
        public static byte[] Bytes(byte[] buffer, int count)
        {
            int n = Math.Max(0, Math.Min(count, buffer.Length - 1));
            var bytes = new byte[n];
            Array.Copy(buffer, bytes, n);
            return bytes;
        }

        /// <summary>A NUL-terminated text the library passed to a callback; at most `max` bytes
        /// are read. Null for a null pointer.</summary>
        public static string FromPointer(IntPtr text, int max = 1 << 20)
        {
            if (text == IntPtr.Zero) return null;
            int n = 0;
            while (n < max && Marshal.ReadByte(text, n) != 0) n++;
            var bytes = new byte[n];
            Marshal.Copy(text, bytes, 0, n);
            return Decode(bytes, 0, n);
        }
    }
}
