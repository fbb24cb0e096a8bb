// From the library's callback threads to ZanthLibrary's events. One trampoline per kind is made
// once and kept for the process's life; it turns the native text into event arguments and hands
// them to the running instance, or to the kind's backlog while no handler is there. Nothing that
// happens here unwinds into the library: a trampoline always returns 0.

using System;
using System.Collections.Generic;
using System.Threading;

namespace Zanth
{
    internal enum Kind
    {
        HereIAm, Lookup, KeyPad, CommandKey, Alarm, Event, PostAccess, SmartCard, Response,
        Connected, Disconnected, Pin,
    }

    internal static class Dispatch
    {
        // Items kept for a kind without a handler; beyond this the oldest are kept and the newest
        // counted as dropped.
        const int BacklogLimit = 100000;

        sealed class Channel
        {
            public Kind Kind;
            public string Name;          // the model's callback kind ("pin" has no callback)
            public bool Padded;          // the text comes padded with blanks
            public Delegate Trampoline;  // null for the polled PIN reports
            public Func<Delegate, int> Set;
            public readonly object DeliverLock = new object();
            public readonly Queue<EventArgs> Backlog = new Queue<EventArgs>();
            public long Dropped;
        }

        static readonly Channel[] channels = Make();

        static Channel[] Make()
        {
            var c = new Channel[(int)Kind.Pin + 1];
            c[(int)Kind.HereIAm] = Text(Kind.HereIAm, cb => ZanthApi.SetHereIAmCallback((ZanthTextCallback)cb));
            c[(int)Kind.Lookup] = Text(Kind.Lookup, cb => ZanthApi.SetLookupCallback((ZanthTextCallback)cb));
            c[(int)Kind.KeyPad] = Text(Kind.KeyPad, cb => ZanthApi.SetKeyPadDataCallback((ZanthTextCallback)cb));
            c[(int)Kind.CommandKey] = Text(Kind.CommandKey, cb => ZanthApi.SetCommandKeyDataCallback((ZanthTextCallback)cb));
            c[(int)Kind.Alarm] = Text(Kind.Alarm, cb => ZanthApi.SetAlarmCallback((ZanthTextCallback)cb));
            c[(int)Kind.Event] = Text(Kind.Event, cb => ZanthApi.SetEventCallback((ZanthTextCallback)cb));
            c[(int)Kind.PostAccess] = Text(Kind.PostAccess, cb => ZanthApi.SetPostAccessCallback((ZanthTextCallback)cb));
            c[(int)Kind.SmartCard] = Text(Kind.SmartCard, cb => ZanthApi.SetSmartCardDataCallback((ZanthTextCallback)cb));
            var response = new Channel { Kind = Kind.Response, Name = "response" };
            response.Trampoline = new ZanthResponseCallback(r => OnResponse(response, r));
            response.Set = cb => ZanthApi.SetResponseCallback((ZanthResponseCallback)cb);
            c[(int)Kind.Response] = response;
            c[(int)Kind.Connected] = Connection(Kind.Connected, "connected",
                                                cb => ZanthApi.SetConnectedControllersCallback((ZanthConnectionCallback)cb));
            c[(int)Kind.Disconnected] = Connection(Kind.Disconnected, "disconnected",
                                                   cb => ZanthApi.SetDisconnectedControllersCallback((ZanthConnectionCallback)cb));
            c[(int)Kind.Pin] = new Channel { Kind = Kind.Pin, Name = "pin" };
            return c;
        }

        static Channel Text(Kind kind, Func<Delegate, int> set)
        {
            var c = new Channel { Kind = kind, Set = set };
            // The kind's name and padding are the model's, found by the registration's export.
            foreach (ExportInfo e in ZanthModel.Exports)
            {
                foreach (ParamInfo p in e.Params)
                {
                    if (p.Role == ParamRole.Callback && p.CType == "ZanthTextCallback" && e.Name == SetterName(kind))
                    {
                        c.Name = p.CallbackKind;
                        c.Padded = p.CallbackPadded;
                    }
                }
            }
            if (c.Name == null) throw new InvalidOperationException("no callback export for " + kind);
            c.Trampoline = new ZanthTextCallback(t => OnText(c, t));
            return c;
        }

        static string SetterName(Kind kind)
        {
            switch (kind)
            {
                case Kind.HereIAm: return "SetHereIAmCallback";
                case Kind.Lookup: return "SetLookupCallback";
                case Kind.KeyPad: return "SetKeyPadDataCallback";
                case Kind.CommandKey: return "SetCommandKeyDataCallback";
                case Kind.Alarm: return "SetAlarmCallback";
                case Kind.Event: return "SetEventCallback";
                case Kind.PostAccess: return "SetPostAccessCallback";
                case Kind.SmartCard: return "SetSmartCardDataCallback";
                default: return null;
            }
        }

        static Channel Connection(Kind kind, string name, Func<Delegate, int> set)
        {
            var c = new Channel { Kind = kind, Name = name, Set = set };
            c.Trampoline = new ZanthConnectionCallback(mac => OnConnection(c, mac));
            return c;
        }

        public static string Name(Kind kind)
        {
            return channels[(int)kind].Name;
        }

        /// <summary>Registers the kind's trampoline with the library, unless it holds it already.</summary>
        public static void Register(Kind kind)
        {
            Channel c = channels[(int)kind];
            lock (c)
            {
                if (c.Set == null || Callbacks.Current(c.Name) == c.Trampoline) return;
                c.Set(c.Trampoline);
            }
        }

        // ---- Trampolines: on the library's threads ----------------------------------------------

        static void Attached()
        {
            ExitGuard.Entered();
        }

        static int OnText(Channel c, IntPtr text)
        {
            try
            {
                Attached();
                string t = NativeText.FromPointer(text) ?? "";
                if (c.Padded) t = t.TrimEnd(' ');
                Deliver(c, new ControllerTextEventArgs(c.Name, t));
            }
            catch (Exception e)
            {
                Last(c, e);
            }
            return 0;
        }

        static int OnConnection(Channel c, IntPtr mac)
        {
            try
            {
                Attached();
                Deliver(c, new ControllerEventArgs((NativeText.FromPointer(mac) ?? "").Trim()));
            }
            catch (Exception e)
            {
                Last(c, e);
            }
            return 0;
        }

        static int OnResponse(Channel c, IntPtr response)
        {
            try
            {
                Attached();
                if (response == IntPtr.Zero) return 0;
                ZanthResponse r = ZanthResponse.FromPointer(response);
                string frame = NativeText.Decode(r.Text, 0, NativeText.FrameLength(r.Text, r.Text.Length));
                Deliver(c, new ResponseEventArgs(unchecked((uint)r.Rspid), frame));
            }
            catch (Exception e)
            {
                Last(c, e);
            }
            return 0;
        }

        // Handlers' own failures are reported by ZanthLibrary.Raise; this is for the binding's.
        static void Last(Channel c, Exception e)
        {
            try
            {
                Console.Error.WriteLine("zanth: the " + c.Name + " callback failed: " + e);
            }
            catch (Exception)
            {
            }
        }

        // ---- To the handlers ----------------------------------------------------------------------

        public static void Deliver(Kind kind, EventArgs args)
        {
            Deliver(channels[(int)kind], args);
        }

        static void Deliver(Channel c, EventArgs args)
        {
            lock (c.DeliverLock)
            {
                ZanthLibrary lib = ZanthLibrary.Current;
                if (lib != null && Drain(c, lib) && lib.Raise(c.Kind, args)) return;
                if (c.Backlog.Count < BacklogLimit) c.Backlog.Enqueue(args);
                else c.Dropped++;
            }
        }

        // Hands the backlog to `lib`'s handlers, oldest first; true when it is empty.
        static bool Drain(Channel c, ZanthLibrary lib)
        {
            while (c.Backlog.Count > 0)
            {
                if (!lib.Raise(c.Kind, c.Backlog.Peek())) return false;
                c.Backlog.Dequeue();
            }
            return true;
        }

        /// <summary>A handler was added: what waited for one follows on a pool thread.</summary>
        public static void FlushLater(Kind kind)
        {
            Channel c = channels[(int)kind];
            lock (c.DeliverLock)
            {
                if (c.Backlog.Count == 0) return;
            }
            ThreadPool.QueueUserWorkItem(_ =>
            {
                lock (c.DeliverLock)
                {
                    ZanthLibrary lib = ZanthLibrary.Current;
                    if (lib != null) Drain(c, lib);
                }
            });
        }
    }
}
