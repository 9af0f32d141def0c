# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Glint/table/RowAccess.h"
TESTS = ["GlintTest", "CrashTest", "FormatTest", "AgentCrashTest"]

# x86 keeps stores in order and loads in order, so these live there.
ORDER_ONLY = "not to be seen on x86, which keeps the order by itself"

MUTANTS = [
    ("update is published before its copy is filled",
     """    const Seq next = fillIdle(slot, seq, row);
    storeRelease(*view_->slot(slot), next.word());
  }

  Seq fillIdle""",
     """    storeRelease(*view_->slot(slot), seq.published().word());
    (void)fillIdle(slot, seq, row);
  }

  Seq fillIdle"""),
    ("update fills the live copy",
     "fillCopy(copyAt(slot, next.copy()), row, next.word());",
     "fillCopy(copyAt(slot, seq.copy()), row, next.word());"),
    ("insert is live before it is linked",
     """    storeRelease(head, Link::to(slot).word());
    storeRelease(*view_->slot(slot), next.word());""",
     """    storeRelease(*view_->slot(slot), next.word());
    storeRelease(head, Link::to(slot).word());"""),
    ("insert is live before its copy is filled",
     """    const Seq next = fillIdle(slot, seq, row);
    storeRelaxed(view_->linkAfter(slot), loadRelaxed(head));""",
     """    storeRelease(*view_->slot(slot), seq.published().word());
    const Seq next = fillIdle(slot, seq, row);
    storeRelaxed(view_->linkAfter(slot), loadRelaxed(head));"""),
    ("insert is reachable before its link is set",
     """    storeRelaxed(view_->linkAfter(slot), loadRelaxed(head));
    storeRelease(head, Link::to(slot).word());""",
     """    const std::uint32_t after = loadRelaxed(head);
    storeRelease(head, Link::to(slot).word());
    storeRelaxed(view_->linkAfter(slot), after);"""),
    ("insert forgets what it links in front of",
     "storeRelaxed(view_->linkAfter(slot), loadRelaxed(head));",
     "storeRelaxed(view_->linkAfter(slot), Link::end().word());"),
    ("delete does not unlink",
     """    storeRelease(*place.link, loadRelaxed(view_->linkAfter(place.slot)));
    table_->rowDeleted""",
     "    table_->rowDeleted"),
    ("delete unlinks before the row is dead",
     """    storeRelease(*view_->slot(place.slot), place.seq.deleted().word());
    storeRelease(*place.link, loadRelaxed(view_->linkAfter(place.slot)));""",
     """    storeRelease(*place.link, loadRelaxed(view_->linkAfter(place.slot)));
    storeRelease(*view_->slot(place.slot), place.seq.deleted().word());"""),
    ("delete leaves the seq live",
     """    storeRelease(*view_->slot(place.slot), place.seq.deleted().word());
""",
     ""),
    ("slot is free before it is unlinked",
     """    storeRelease(*place.link, loadRelaxed(view_->linkAfter(place.slot)));
    table_->rowDeleted(place.slot);""",
     """    table_->rowDeleted(place.slot);
    storeRelease(*place.link, loadRelaxed(view_->linkAfter(place.slot)));""",
     {"lives": "only a reader's first walk can be led astray by it: a miss is confirmed by a "
               "second one within the same generation, which has room for one delete only"}),
    ("slot's version passes its bound",
     "PELL_ASSERT_MESSAGE(seq.version() + 2 < Seq::kVersionLimit,",
     "PELL_ASSERT_MESSAGE(seq.version() + 1 < Seq::kVersionLimit,"),
    ("miss is believed without the generation",
     """    fenceBeforeSecondLook();
    return loadRelaxed(view_->header().generation) == generation;""",
     """    fenceBeforeSecondLook();
    (void)generation;
    return true;"""),
    ("miss is believed without a look at the chain's rows",
     "    return confirmAbsent(key, chain, generation);",
     "    return sameGeneration(generation) ? Answer::absent : Answer::changed;"),
    ("reader uses the index while it is rebuilt",
     """    if ((generation & 1U) != 0) {
      return Answer::changed;
    }
""",
     ""),
    ("chain is followed without a bound",
     "      if (hops == view_->fixed().slotCount) {",
     "      if (hops == 0xFFFFFFFFU) {"),
    ("seq is read without acquire",
     "const Seq seq(loadAcquire(*view_->slot(slot)));",
     "const Seq seq(loadRelaxed(*view_->slot(slot)));",
     {"lives": ORDER_ONLY}),
]
