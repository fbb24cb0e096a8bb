// The binding against zanth-sim over loopback: commands and their replies, what the controllers
// send of their own accord as .NET events, handlers that throw, the end of a run and the start of
// the next, and the sample host deciding look-ups.

using System;
using System.Collections.Generic;
using System.Linq;
using System.Threading;

namespace Zanth.Tests
{
    public static class SimulatorTests
    {
        const string Mac = "00:00:01";

        /// <summary>Everything one kind of event brought, in order, with the threads it came on.</summary>
        sealed class Seen<T> where T : EventArgs
        {
            readonly List<T> items = new List<T>();
            readonly HashSet<int> threads = new HashSet<int>();

            public void Add(object sender, T args)
            {
                lock (items)
                {
                    items.Add(args);
                    threads.Add(Thread.CurrentThread.ManagedThreadId);
                }
            }

            public List<T> Items
            {
                get { lock (items) return new List<T>(items); }
            }

            public int Count { get { lock (items) return items.Count; } }

            public bool CameOnlyOn(Func<int, bool> thread)
            {
                lock (items) return threads.All(t => thread(t));
            }

            public bool Any(Func<T, bool> match)
            {
                lock (items) return items.Any(match);
            }
        }

        static void Connected(ZanthLibrary zanth, string mac = Mac)
        {
            Assert.True(zanth.WaitConnected(mac, TimeSpan.FromSeconds(30)), mac + " connected");
        }

        [Test] public static void ControllerInfoAndACardRecordRoundTrip()
        {
            int port = Net.FreePort();
            using (var zanth = new ZanthLibrary(port, Mac))
            using (new Simulator(port))
            {
                Connected(zanth);
                // "model;firmware;MAC;serial;"
                string[] info = ZanthApi.ControllerInfo(Mac).Split(';');
                Assert.Equal(Mac, info[2], "the controller describes itself");

                var card = new CardRecord
                {
                    CardSetId = 7, NoFormat = 0, CardNumber = "1001", Pin = "1234", AccessType = 2,
                    UniqueId = 4000000001, AccessGroup1 = 3, AccessGroup8 = 65535, ExtendedAccess = 1,
                    PassbackExempt = 1, PinCommands = 0, StartDate = "2012/01/02", StartTime = "08:30:00",
                    EndDate = "2037/12/31", EndTime = "0", EscortId = 4294967295, InScheduleElevatorGroup = 255,
                    OutScheduleElevatorGroup = 4, PinExempt = 1, CardRole = 300,
                };
                Assert.Equal(0, ZanthApi.AddModCardRecord3(Mac, card), "added");
                CardRecord back = ZanthApi.GetCardRecord4(Mac, 7, 0, "1001", "1234");
                card.Field7Value = back.Field7Value;  // a field of the reply the add has no counterpart for
                card.EndTime = "23:59:59";            // an end date with the time "0" covers the whole day
                Assert.Equal(card.ToString(), back.ToString(), "the record reads back");
                Assert.True(card.Equals(back), "CardRecord.Equals agrees");
                Assert.True(ZanthApi.GetNumberOfCards(Mac).FirstCount >= 1, "the count includes it");

                Assert.Equal(0, ZanthApi.DeleteCardRecord(Mac, 7, 0, "1001", "1234"), "deleted");
                var gone = Assert.Throws<ZanthException>(() => ZanthApi.GetCardRecord4(Mac, 7, 0, "1001", "1234"), "read after delete");
                Assert.True(gone.Code < 0, "a deleted record is the controller's negative result (" + gone.Message + ")");
                Assert.Equal("GetCardRecord4", gone.Export, "export named");
            }
        }

        [Test] public static void RspRepliesArriveByPollingOrAsEvents()
        {
            int port = Net.FreePort();
            using (var zanth = new ZanthLibrary(port, Mac))
            using (new Simulator(port))
            {
                Connected(zanth);
                // No handler yet: the reply waits in the library's queue for GetNextResponse.
                Assert.Equal(0, ZanthApi.RspControllerInfo(5, Mac), "queued");
                GetNextResponseResult polled = null;
                Assert.True(Wait.Until(() => (polled = ZanthApi.GetNextResponse()) != null), "a reply to poll");
                Assert.Equal(5, polled.Rspid, "its rspid");
                Assert.True(polled.Buffer.StartsWith("1079;", StringComparison.Ordinal), "the controller-info reply: " + polled.Buffer);
                Assert.Contains(";" + Mac + ";", polled.Buffer, "the whole frame");

                // With a handler, the replies come as events, tagged as the caller tagged them.
                var replies = new Seen<ResponseEventArgs>();
                zanth.ResponseReceived += replies.Add;
                ZanthApi.RspControllerInfo(6, Mac);
                ZanthApi.RspControllerInfo(3000000000, Mac);
                Assert.True(Wait.Until(() => replies.Count >= 2), "two replies as events");
                var byId = replies.Items.ToDictionary(r => r.Rspid);
                Assert.True(byId.ContainsKey(6) && byId.ContainsKey(3000000000), "rspids 6 and 3000000000: " +
                            string.Join(",", byId.Keys));
                Assert.Equal(1079, byId[6].Code, "reply code");
                Assert.Equal(int.Parse(byId[6].Frame.Substring(5, 4)), byId[6].Frame.Length, "the frame as long as its header says");
                Assert.Contains(Mac, byId[6].Payload, "payload");
                Assert.True(ZanthApi.GetNextResponse() == null, "nothing left for polling");
            }
        }

        [Test] public static void ControllerTrafficArrivesAsDotNetEvents()
        {
            int port = Net.FreePort();
            int testThread = Thread.CurrentThread.ManagedThreadId;
            using (var zanth = new ZanthLibrary(port, Mac))
            {
                var connected = new Seen<ControllerEventArgs>();
                var disconnected = new Seen<ControllerEventArgs>();
                var events = new Seen<ControllerTextEventArgs>();
                var alarms = new Seen<ControllerTextEventArgs>();
                var lookups = new Seen<ControllerTextEventArgs>();
                var pins = new Seen<ControllerTextEventArgs>();
                var doors = new Seen<ControllerTextEventArgs>();
                var failures = new Seen<HandlerFailedEventArgs>();
                zanth.Connected += connected.Add;
                zanth.Disconnected += disconnected.Add;
                zanth.EventReported += events.Add;
                zanth.AlarmReported += alarms.Add;
                zanth.PinReported += pins.Add;
                zanth.PostAccessReported += doors.Add;
                zanth.HandlerFailed += failures.Add;
                // The door's decision, taken on the library's thread as a host would: card 1001 opens.
                // A decision sent while the link is being ended waits for its reply until the wait
                // time has passed: 5 s here, and such failures don't count.
                ZanthApi.RecvWaitTime(1, 5000);
                var deciding = true;
                zanth.LookupReceived += (s, e) =>
                {
                    lookups.Add(s, e);
                    string[] f = e.Fields;  // MAC;door;card;facility;
                    try
                    {
                        ZanthApi.RecheckLookupCard(f[0], f[1] + ";" + f[2] + ";" + (f[2] == "1001" ? 1 : 0) + ";");
                    }
                    catch (ZanthException) when (!deciding)
                    {
                    }
                };
                using (new Simulator(port, "--event-interval-ms 200 --alarm-interval-ms 300 --lookup-interval-ms 300"))
                {
                    Assert.True(Wait.Until(() => connected.Any(c => ZanthLibrary.SameMac(c.Mac, Mac))), "Connected");
                    Assert.True(Wait.Until(() => events.Count >= 2 && alarms.Count >= 1 && lookups.Count >= 2), "events, alarms, look-ups");
                    Assert.True(events.Items.All(e => e.Kind == "event" && e.Fields[0] == Mac), "events name their controller first");
                    Assert.True(alarms.Items.All(e => e.Kind == "alarm" && e.Fields[0] == Mac), "alarms too");
                    Assert.True(Wait.Until(() => doors.Any(d => d.Text.EndsWith(";1001;GRANTED;", StringComparison.Ordinal)) &&
                                                 doors.Any(d => d.Text.EndsWith(";DENIED;", StringComparison.Ordinal))),
                                "the doors report the decisions");

                    // A PIN has no callback in the library: it comes through the binding's poller.
                    Assert.Equal(0, ZanthApi.RequestPin(Mac, 2, 10, 4), "PIN requested");
                    Assert.True(Wait.Until(() => pins.Count >= 1), "PinReported");
                    Assert.Equal(Mac, pins.Items[0].Fields[0], "the PIN names its controller");
                    Assert.Equal("2", pins.Items[0].Fields[1], "and the door");

                    deciding = false;
                    Assert.Equal(0, ZanthApi.Terminate(Mac), "link told to end");
                    Assert.True(Wait.Until(() => disconnected.Any(d => ZanthLibrary.SameMac(d.Mac, Mac))), "Disconnected");
                }
                Assert.Equal(0, failures.Count, "no handler failed");
                Assert.True(events.CameOnlyOn(t => t != testThread) && lookups.CameOnlyOn(t => t != testThread),
                            "raised on the library's threads, not the caller's");
            }
        }

        [Test] public static void AThrowingHandlerIsReportedAndTheTrafficGoesOn()
        {
            int port = Net.FreePort();
            using (var zanth = new ZanthLibrary(port, Mac))
            using (new Simulator(port, "--event-interval-ms 100"))
            {
                var failures = new Seen<HandlerFailedEventArgs>();
                var after = new Seen<ControllerTextEventArgs>();
                zanth.HandlerFailed += failures.Add;
                zanth.EventReported += (s, e) => { throw new InvalidOperationException("handler says no to " + e.Fields[1]); };
                zanth.EventReported += after.Add;  // the next handler still runs
                Connected(zanth);
                Assert.True(Wait.Until(() => failures.Count >= 3 && after.Count >= 3), "three failures, and the events went on");
                HandlerFailedEventArgs first = failures.Items[0];
                Assert.Equal("event", first.Kind, "the kind whose handler threw");
                Assert.True(first.Exception is InvalidOperationException, "the handler's own exception: " + first.Exception);
                Assert.Contains("handler says no", first.Exception.Message, "message");

                // A HandlerFailed handler that throws as well: written to stderr, and nothing stops.
                zanth.HandlerFailed -= failures.Add;
                zanth.HandlerFailed += (s, e) => { throw new ApplicationException("the report fails too"); };
                int seen = after.Count;
                Assert.True(Wait.Until(() => after.Count >= seen + 3), "events still arrive");
                Assert.Equal(Mac, ZanthApi.ControllerInfo(Mac).Split(';')[2], "and commands are answered");
            }
        }

        [Test] public static void DisposeShutsDownAndTheNextRunGetsWhatWasLeft()
        {
            int port = Net.FreePort();
            // Events and alarms share one message ID sequence per controller: the union of what
            // both runs saw must have no gap, whatever arrived while neither had a handler.
            var ids = new SortedSet<int>();
            Action<object, ControllerTextEventArgs> note = (s, e) => { lock (ids) ids.Add(int.Parse(e.Fields[1])); };
            using (new Simulator(port, "--event-interval-ms 100 --alarm-interval-ms 170"))
            {
                var first = new ZanthLibrary(port, Mac);
                var firstSeen = 0;
                first.EventReported += (s, e) => { note(s, e); Interlocked.Increment(ref firstSeen); };
                first.AlarmReported += (s, e) => note(s, e);
                Connected(first);
                Assert.True(Wait.Until(() => firstSeen >= 5), "the first run's events");
                Assert.Throws<InvalidOperationException>(() => new ZanthLibrary(Net.FreePort(), Mac), "a second instance meanwhile");

                first.Dispose();
                int atDispose = firstSeen;
                Assert.True(Wait.Until(() => ZanthApi.GetConnectedControllers().Length == 0), "Shutdown ended the links");
                first.Dispose();  // again: nothing
                Assert.Throws<ObjectDisposedException>(() => first.ConnectedControllers(), "a disposed run");
                Assert.Throws<ObjectDisposedException>(() => first.EventReported += (s, e) => { }, "no handler added to it");

                // The simulator redials; the next run takes it, and what the first left behind.
                var secondSeen = 0;
                var reconnected = new ManualResetEvent(false);
                using (var second = new ZanthLibrary(port, Mac))
                {
                    second.EventReported += (s, e) => { note(s, e); Interlocked.Increment(ref secondSeen); };
                    second.AlarmReported += (s, e) => note(s, e);
                    second.Connected += (s, e) => reconnected.Set();
                    Assert.True(reconnected.WaitOne(30000), "the controller came back");
                    Assert.True(Wait.Until(() => secondSeen >= 5), "the second run's events");
                    Assert.Equal(atDispose, firstSeen, "no handler of the first run ran after its Dispose");
                    // Every ID up to the highest seen now: events and alarms come on threads of their
                    // own, so the neighbours of the newest may still be on their way for a moment.
                    int last;
                    lock (ids) last = ids.Max;
                    Assert.True(Wait.Until(() => { lock (ids) return Enumerable.Range(1, last).All(ids.Contains); }),
                                "message IDs 1 to " + last + " without a gap: " + Gaps(ids));

                    // Dispose from inside a handler: it doesn't wait for itself.
                    var disposedInHandler = new ManualResetEvent(false);
                    second.EventReported += (s, e) => { second.Dispose(); disposedInHandler.Set(); };
                    Assert.True(disposedInHandler.WaitOne(15000), "Dispose returned inside the handler");
                }
                using (var third = new ZanthLibrary(port, Mac))
                {
                    Connected(third);
                }
            }
        }

        static string Gaps(SortedSet<int> ids)
        {
            lock (ids)
            {
                var missing = Enumerable.Range(ids.Min, ids.Max - ids.Min + 1).Where(i => !ids.Contains(i)).Take(10);
                return ids.Min + ".." + ids.Max + ", missing " + string.Join(",", missing);
            }
        }

        [Test] public static void TheSampleHostDecidesLookUps()
        {
            int port = Net.FreePort();
            using (var sample = new Spawned(Spawned.FromEnvironment("ZANTH_MONO"),
                                            "--debug " + Spawned.FromEnvironment("ZANTH_SAMPLE") + " --port " + port +
                                            " --valid ALL --grant 1001,3003", redirectInput: true))
            using (new Simulator(port, "--count 2 --lookup-interval-ms 300 --event-interval-ms 400 --alarm-interval-ms 700"))
            {
                Func<string, bool> shown = part => sample.Output.Contains(part);
                Assert.True(Wait.Until(() => shown("info 00:00:01 ") && shown("info 00:00:02 ") &&
                                             shown("look-up 00:00:01 door 1 card 1001: granted (controller answered 0)") &&
                                             shown("card 2001: denied (controller answered 0)") &&
                                             shown(";1001;GRANTED;") && shown(";2001;DENIED;") &&
                                             shown("event 00:00:02;") && shown("alarm 00:00:01;"), 30),
                            "the sample's work:\n" + sample.Output);
                sample.Input.Close();  // the end of its input stops it
                Assert.Equal(0, sample.WaitForExit(30), "the sample ended by itself:\n" + sample.Output);
                string summary = sample.Output.Split('\n').First(l => l.Contains("summary:"));
                Assert.Contains("2 connects", summary, "summary");
                Assert.True(summary.Contains(" 0 failures"), "no failure in the summary:\n" + sample.Output);
                Assert.True(!sample.Output.Contains("threw"), "no handler failed:\n" + sample.Output);
            }
        }
    }
}
