// The library's run as a .NET object: started on a port with a valid list, ended by Dispose, and
// what the controllers send of their own accord raised as .NET events.
//
//   using (var zanth = new ZanthLibrary(3001, "C0:00:01"))
//   {
//       zanth.EventReported += (s, e) => Console.WriteLine("event " + e.Text);
//       zanth.LookupReceived += (s, e) => ZanthApi.RecheckLookupCard(mac, decision);
//       if (zanth.WaitConnected("C0:00:01", TimeSpan.FromSeconds(30)))
//           Console.WriteLine(ZanthApi.ControllerInfo("C0:00:01"));
//   }
//
// The library calls back on its own threads. A kind of text is taken from the library's queue
// (which polling would otherwise read) only once a handler is added for it: the native callback
// is registered then, once per process. Items that arrive while no handler is there (between two
// runs, or after the last handler went) wait in a backlog and reach the next handler in order.
// A handler that throws is reported to HandlerFailed (or stderr) and never unwinds into the
// library. PIN reports have no native callback: a handler of PinReported starts a thread that
// polls GetNextPin.

using System;
using System.Collections.Generic;
using System.Threading;

namespace Zanth
{
    public sealed class ZanthLibrary : IDisposable
    {
        // ---- One run at a time ----------------------------------------------------------------

        static readonly object gate = new object();
        static ZanthLibrary current;
        static bool claimed;

        /// <summary>The running instance, or null.</summary>
        internal static ZanthLibrary Current
        {
            get { lock (gate) return current; }
        }

        readonly object handlersGate = new object();
        readonly Dictionary<Kind, Delegate> handlers = new Dictionary<Kind, Delegate>();
        int running;           // handlers under way
        bool disposed;
        Thread pinPoller;
        readonly ManualResetEvent stopPolling = new ManualResetEvent(false);
        [ThreadStatic] static int handlerDepth;

        /// <summary>The port the controllers connect to.</summary>
        public int Port { get; private set; }

        /// <summary>Starts the library on `port` (1025 to 65535) and sets its valid list:
        /// comma-separated MACs, or ALL for every controller; null leaves the list the library
        /// starts with. One instance runs at a time in a process (the library has one central
        /// object): InvalidOperationException while another is alive. ZanthException when the
        /// library refuses; ArgumentException for a port or list that can't be right, before any
        /// call.</summary>
        public ZanthLibrary(int port, string validControllers)
        {
            Check.Number(X.Initialization, 0, port);
            if (validControllers != null) Check.Text(X.SetValidControllers, 0, validControllers);
            lock (gate)
            {
                if (claimed)
                {
                    throw new InvalidOperationException("ZanthLibrary: the library runs one instance at a " +
                                                        "time in a process; dispose the other first");
                }
                claimed = true;
                current = this;
            }
            try
            {
                // Connects and disconnects can't be polled, and the library drops a transition whose
                // callback isn't registered: these two are registered from the start.
                Dispatch.Register(Kind.Connected);
                Dispatch.Register(Kind.Disconnected);
                if (validControllers != null) ZanthApi.SetValidControllers(validControllers);
                Start(port);
                Port = port;
            }
            catch
            {
                lock (gate)
                {
                    current = null;
                    claimed = false;
                }
                throw;
            }
        }

        static void Start(int port)
        {
            // Right after another run's Shutdown the library is still ending it (-10001) for a
            // moment: wait for that, a bounded time.
            DateTime deadline = DateTime.UtcNow.AddSeconds(15);
            while (true)
            {
                int result = ZanthNative.Initialization(port, IntPtr.Zero, IntPtr.Zero);
                if (result == 0) return;
                if (result != -10001 || DateTime.UtcNow >= deadline) throw new ZanthException("Initialization", result);
                Thread.Sleep(100);
            }
        }

        /// <summary>Ends the run: no handler is called once Dispose has begun (those under way
        /// finish first, unless Dispose is called from one), then Shutdown tells every controller
        /// to terminate. Another instance may start afterwards.</summary>
        public void Dispose()
        {
            lock (gate)
            {
                if (disposed) return;
                disposed = true;
                if (current == this) current = null;
            }
            stopPolling.Set();
            Thread poller;
            lock (handlersGate)
            {
                poller = pinPoller;
                // Handlers on other threads finish; one on this thread is the caller itself.
                while (running > handlerDepth) Monitor.Wait(handlersGate);
            }
            if (poller != null && poller != Thread.CurrentThread) poller.Join();
            ZanthNative.Shutdown();
            lock (gate) claimed = false;
        }

        void ThrowIfDisposed()
        {
            if (disposed) throw new ObjectDisposedException("ZanthLibrary");
        }

        // ---- Controllers --------------------------------------------------------------------------

        /// <summary>The MACs of the controllers that have identified themselves.</summary>
        public string[] ConnectedControllers()
        {
            ThrowIfDisposed();
            var macs = new List<string>();
            foreach (string item in ZanthApi.GetConnectedControllers().Split(','))
            {
                string mac = item.Trim();
                if (mac.Length > 0) macs.Add(mac);
            }
            return macs.ToArray();
        }

        public bool IsConnected(string mac)
        {
            foreach (string m in ConnectedControllers())
            {
                if (SameMac(m, mac)) return true;
            }
            return false;
        }

        /// <summary>Waits until the controller has identified itself, looking every 20 ms; false
        /// when `timeout` has passed first.</summary>
        public bool WaitConnected(string mac, TimeSpan timeout)
        {
            DateTime deadline = DateTime.UtcNow + timeout;
            while (!IsConnected(mac))
            {
                if (DateTime.UtcNow >= deadline) return false;
                Thread.Sleep(20);
            }
            return true;
        }

        /// <summary>Two MACs name the same controller: case and separators don't matter.</summary>
        public static bool SameMac(string a, string b)
        {
            return Digits(a) == Digits(b);
        }

        static string Digits(string mac)
        {
            var d = new System.Text.StringBuilder();
            foreach (char c in mac ?? "")
            {
                if ((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F')) d.Append(char.ToUpperInvariant(c));
            }
            return d.ToString();
        }

        // ---- Events -------------------------------------------------------------------------------

        /// <summary>A controller identified itself.</summary>
        public event EventHandler<ControllerEventArgs> Connected
        {
            add { Add(Kind.Connected, value); }
            remove { Remove(Kind.Connected, value); }
        }

        /// <summary>A controller's link ended.</summary>
        public event EventHandler<ControllerEventArgs> Disconnected
        {
            add { Add(Kind.Disconnected, value); }
            remove { Remove(Kind.Disconnected, value); }
        }

        /// <summary>A controller reported an event (also kept in the event file).</summary>
        public event EventHandler<ControllerTextEventArgs> EventReported
        {
            add { Add(Kind.Event, value); }
            remove { Remove(Kind.Event, value); }
        }

        /// <summary>A controller raised an alarm (also kept in the alarm file).</summary>
        public event EventHandler<ControllerTextEventArgs> AlarmReported
        {
            add { Add(Kind.Alarm, value); }
            remove { Remove(Kind.Alarm, value); }
        }

        /// <summary>A card was presented and the controller asks the host: answer with
        /// ZanthApi.RecheckLookupCard.</summary>
        public event EventHandler<ControllerTextEventArgs> LookupReceived
        {
            add { Add(Kind.Lookup, value); }
            remove { Remove(Kind.Lookup, value); }
        }

        /// <summary>A PIN a controller collected (after ZanthApi.RequestPin). Polled every 100 ms
        /// while a handler is there: the library has no callback for it.</summary>
        public event EventHandler<ControllerTextEventArgs> PinReported
        {
            add { Add(Kind.Pin, value); }
            remove { Remove(Kind.Pin, value); }
        }

        /// <summary>What a door did after an access.</summary>
        public event EventHandler<ControllerTextEventArgs> PostAccessReported
        {
            add { Add(Kind.PostAccess, value); }
            remove { Remove(Kind.PostAccess, value); }
        }

        public event EventHandler<ControllerTextEventArgs> HereIAmReceived
        {
            add { Add(Kind.HereIAm, value); }
            remove { Remove(Kind.HereIAm, value); }
        }

        public event EventHandler<ControllerTextEventArgs> KeyPadDataReceived
        {
            add { Add(Kind.KeyPad, value); }
            remove { Remove(Kind.KeyPad, value); }
        }

        public event EventHandler<ControllerTextEventArgs> CommandKeyReceived
        {
            add { Add(Kind.CommandKey, value); }
            remove { Remove(Kind.CommandKey, value); }
        }

        public event EventHandler<ControllerTextEventArgs> SmartCardDataReceived
        {
            add { Add(Kind.SmartCard, value); }
            remove { Remove(Kind.SmartCard, value); }
        }

        /// <summary>The reply to a Rsp... call. While a handler is there, GetNextResponse finds
        /// nothing: the replies come here.</summary>
        public event EventHandler<ResponseEventArgs> ResponseReceived
        {
            add { Add(Kind.Response, value); }
            remove { Remove(Kind.Response, value); }
        }

        /// <summary>A handler of one of the other events threw. Without a handler here, the
        /// failure is written to stderr.</summary>
        public event EventHandler<HandlerFailedEventArgs> HandlerFailed;

        void Add(Kind kind, Delegate handler)
        {
            if (handler == null) return;
            ThrowIfDisposed();
            // The native side first: a failed registration leaves no handler that would wait in vain.
            if (kind == Kind.Pin) StartPinPoller();
            else Dispatch.Register(kind);
            lock (handlersGate)
            {
                Delegate d;
                handlers.TryGetValue(kind, out d);
                handlers[kind] = Delegate.Combine(d, handler);
            }
            Dispatch.FlushLater(kind);
        }

        void Remove(Kind kind, Delegate handler)
        {
            lock (handlersGate)
            {
                Delegate d;
                if (!handlers.TryGetValue(kind, out d)) return;
                d = Delegate.Remove(d, handler);
                if (d == null) handlers.Remove(kind);
                else handlers[kind] = d;
            }
        }

        internal bool HasHandler(Kind kind)
        {
            lock (handlersGate) return !disposed && handlers.ContainsKey(kind);
        }

        /// <summary>Calls the handlers of `kind` with `args` on this thread; false when there are
        /// none (any more), so that the item waits for the next ones.</summary>
        internal bool Raise(Kind kind, EventArgs args)
        {
            Delegate d;
            lock (handlersGate)
            {
                if (disposed || !handlers.TryGetValue(kind, out d)) return false;
                running++;
            }
            handlerDepth++;
            try
            {
                foreach (Delegate one in d.GetInvocationList())
                {
                    try
                    {
                        one.DynamicInvoke(this, args);
                    }
                    catch (System.Reflection.TargetInvocationException e)
                    {
                        Report(kind, e.InnerException ?? e);
                    }
                    catch (Exception e)
                    {
                        Report(kind, e);
                    }
                }
            }
            finally
            {
                handlerDepth--;
                lock (handlersGate)
                {
                    running--;
                    Monitor.PulseAll(handlersGate);
                }
            }
            return true;
        }

        void Report(Kind kind, Exception failure)
        {
            string name = Dispatch.Name(kind);
            try
            {
                EventHandler<HandlerFailedEventArgs> report = HandlerFailed;
                if (report != null)
                {
                    report(this, new HandlerFailedEventArgs(name, failure));
                    return;
                }
            }
            catch (Exception e)
            {
                failure = new AggregateException("the HandlerFailed handler threw too", failure, e);
            }
            try
            {
                Console.Error.WriteLine("zanth: a handler of the " + name + " event threw: " + failure);
            }
            catch (Exception)
            {
                // Nothing is left to tell; the library's thread goes on.
            }
        }

        // ---- PIN reports --------------------------------------------------------------------------

        void StartPinPoller()
        {
            lock (handlersGate)
            {
                if (pinPoller != null) return;
                pinPoller = new Thread(PollPins) { IsBackground = true, Name = "zanth PIN poller" };
                pinPoller.Start();
            }
        }

        void PollPins()
        {
            while (!stopPolling.WaitOne(100))
            {
                if (!HasHandler(Kind.Pin)) continue;
                try
                {
                    string pin;
                    while (!stopPolling.WaitOne(0) && (pin = ZanthApi.GetNextPin()) != null)
                    {
                        Dispatch.Deliver(Kind.Pin, new ControllerTextEventArgs("pin", pin));
                    }
                }
                catch (ZanthException e)
                {
                    Report(Kind.Pin, e);
                }
            }
        }
    }
}
