"""A few power cuts; scripts/powercut makes as many as one likes."""

from appliance import OnABridge
from lab import powercut


class PowerCut(OnABridge):
    def test_the_next_install_succeeds_and_data_is_kept(self) -> None:
        bench = powercut.Bench(self.folder / "bench", self.bridge)
        self.addCleanup(bench.one.machine.cut)
        ways = [way for way in powercut.WAYS if way.name in ("upload", "migration")]
        for row in powercut.run(bench, 4, seed=1, ways=ways):
            with self.subTest(" ".join(powercut.cells(row))):
                self.assertTrue(row.is_good)

    def test_cuts_are_spread(self) -> None:
        upload, migration = powercut.WAYS[0], powercut.WAYS[4]
        lengths = {upload: {"format_sys": 10.0, "install": 2.0}, migration: {"install": 1.0}}
        few = powercut.moments(lengths, 2, seed=3)
        self.assertEqual(len({(moment.way, moment.stage) for moment in few}), 2)
        many = powercut.moments(lengths, 13, seed=3)
        self.assertEqual(many, powercut.moments(lengths, 13, seed=3), "by the seed alone")
        self.assertEqual([sum(moment.stage == stage and moment.way == way for moment in many)
                          for way, stage in ((upload, "format_sys"), (upload, "install"), (migration, "install"))],
                         [10, 2, 1])
        self.assertTrue(all(moment.seconds < lengths[moment.way][moment.stage] for moment in many))
