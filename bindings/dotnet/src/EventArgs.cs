// What ZanthLibrary's events carry.

using System;

namespace Zanth
{
    /// <summary>A controller connected or went.</summary>
    public sealed class ControllerEventArgs : EventArgs
    {
        /// <summary>The controller's MAC as the library reports it ("0" for a link that never
        /// identified itself). An identified controller's end is reported twice.</summary>
        public string Mac { get; private set; }

        public ControllerEventArgs(string mac) { Mac = mac; }
    }

    /// <summary>A text a controller sent of its own accord: an event, an alarm, a card look-up, a
    /// PIN, a post-access report, key pad or command key data, smart-card data, here-I-am.</summary>
    public sealed class ControllerTextEventArgs : EventArgs
    {
        /// <summary>event, alarm, lookup, pin, post_access, key_pad, command_key, smart_card or
        /// here_i_am.</summary>
        public string Kind { get; private set; }
        /// <summary>The payload as the controller sent it (the blanks that pad post-access and
        /// smart-card data removed).</summary>
        public string Text { get; private set; }

        public ControllerTextEventArgs(string kind, string text)
        {
            Kind = kind;
            Text = text;
        }

        /// <summary>The payload split at ';' (the empty piece after a final ';' left out).</summary>
        public string[] Fields
        {
            get
            {
                string t = Text.EndsWith(";", StringComparison.Ordinal) ? Text.Substring(0, Text.Length - 1) : Text;
                return t.Length == 0 ? new string[0] : t.Split(';');
            }
        }
    }

    /// <summary>The reply to a Rsp... call.</summary>
    public sealed class ResponseEventArgs : EventArgs
    {
        /// <summary>The tag the Rsp call was given.</summary>
        public uint Rspid { get; private set; }
        /// <summary>The whole reply frame "CCCC;LLLL;payload", measured by its length field.</summary>
        public string Frame { get; private set; }

        public ResponseEventArgs(uint rspid, string frame)
        {
            Rspid = rspid;
            Frame = frame;
        }

        /// <summary>The reply's code (1079 for ControllerInfo's), or -1 when the frame has no header.</summary>
        public int Code
        {
            get
            {
                int code;
                return Frame.Length >= 10 && int.TryParse(Frame.Substring(0, 4), out code) ? code : -1;
            }
        }

        /// <summary>What follows the frame's header.</summary>
        public string Payload { get { return Frame.Length > 10 ? Frame.Substring(10) : ""; } }
    }

    /// <summary>A handler of one of ZanthLibrary's events threw. The library went on.</summary>
    public sealed class HandlerFailedEventArgs : EventArgs
    {
        /// <summary>The kind of the event whose handler threw (event, lookup, connected, ...).</summary>
        public string Kind { get; private set; }
        public Exception Exception { get; private set; }

        public HandlerFailedEventArgs(string kind, Exception exception)
        {
            Kind = kind;
            Exception = exception;
        }
    }
}
