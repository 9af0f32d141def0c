# SPDX-License-Identifier: Apache-2.0

FILE = "src/platform/Pell/Publisher.cpp"
TESTS = ["PellTest"]

MUTANTS = [
    ("subscriber that is with another publisher is taken",
     '  PELL_ASSERT_MESSAGE(subscriber.at_.get() == this, "a subscriber of one publisher",\n'
     '                      "it is with another one");\n', ""),
    ("subscriber of a publisher that has gone stays with it",
     "  if (subscriber.additions_ == 0 || subscriber.at_->ended) {\n",
     "  if (subscriber.additions_ == 0) {\n"),
    ("removal takes all additions",
     "  if (--subscriber.additions_ > 0) {\n", "  subscriber.additions_ = 0;\n  if (false) {\n"),
    ("second addition keeps the first one's place",
     "    subscriber.place_ = place;\n", ""),
    ("holes stay for ever",
     "  if (deliveries > 0 || additions.size() <= 2 * count) {\n", "  if (true) {\n"),
    ("holes are closed under a delivery",
     "  if (deliveries > 0 || additions.size() <= 2 * count) {\n",
     "  if (additions.size() <= 2 * count) {\n"),
    ("holes are closed by every removal",
     "  if (deliveries > 0 || additions.size() <= 2 * count) {\n", "  if (deliveries > 0) {\n"),
    ("places stay where the holes were closed",
     "      addition.subscriber->place_ = kept;\n", ""),
    ("holes that a delivery leaves are not closed",
     "    --state_->deliveries;\n    state_->closeHoles();\n", "    --state_->deliveries;\n"),
    ("subscriber that dies is still told",
     "  while (additions_ > 0 && !at_->ended) {\n    at_->removeOldest(*this);\n  }\n", ""),
    ("subscriber that dies goes once",
     "  while (additions_ > 0 && !at_->ended) {\n", "  if (additions_ > 0 && !at_->ended) {\n"),
    ("function is destroyed while it runs",
     "  const Ptr<Callee> callee = callee_;\n", "  Callee* const callee = callee_.get();\n"),
    ("subscribers outlast their publisher",
     "  for (Addition& addition : additions) {\n    addition.subscriber = nullptr;\n  }\n", ""),
    ("publisher seems idle while it tells",
     "state_->count == 0 && state_->deliveries == 0", "state_->count == 0"),
    ("who comes during a delivery is told",
     "  for (std::size_t i = 0; i < known; ++i) {\n",
     "  (void)known;\n  for (std::size_t i = 0; i < state.additions.size(); ++i) {\n"),
    ("who comes during a paced delivery is told",
     "  while (at != additions.end() && at->number < end_ && at->subscriber == nullptr) {\n    ++at;\n  }\n"
     "  next_ = at == additions.end() ? end_ : std::min(at->number, end_);\n",
     "  while (at != additions.end() && at->subscriber == nullptr) {\n    ++at;\n  }\n"
     "  next_ = at == additions.end() ? end_ : at->number;\n"),
    ("who goes during a paced delivery is told",
     "at->number < end_ && at->subscriber == nullptr) {\n    ++at;\n  }\n",
     "at->number < end_ && false) {\n    ++at;\n  }\n"),
    ("who throws in a step is told again",
     "  ++next_;\n  const Delivery delivery(state_.get());\n"
     "  subscriber->notify(publisher_, attributeId_, nullptr, nullptr);\n",
     "  const Delivery delivery(state_.get());\n"
     "  subscriber->notify(publisher_, attributeId_, nullptr, nullptr);\n  ++next_;\n"),
    ("step of a paced delivery closes holes under itself",
     "  const Delivery delivery(state_.get());\n  subscriber", "  subscriber"),
    ("paced delivery tells who came last first",
     "std::ranges::lower_bound(additions, next_, {}, &PublisherState::Addition::number);\n",
     "std::ranges::lower_bound(additions, end_ - 1, {}, &PublisherState::Addition::number);\n"),
]
